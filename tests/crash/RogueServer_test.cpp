#include "crash/RogueServer.h"
#include "support/Endpoints.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>

using namespace rk::socket;
using rk::tests::crash::RogueServer;

namespace {

constexpr int longEnough = 20000; // milliseconds
/// 0MQ connects again after a tenth of a second, when it does.
constexpr int someReconnections = 500;

struct ServerThatBreaksTheProtocol : testing::Test {
    const SocketEndpoint endpoint = rk::tests::freshEndpoint(Transport::Tcp);
    const RogueServer server{endpoint.port};
};

} // namespace

TEST_F(ServerThatBreaksTheProtocol, IsGivenUpByASubscriberUntilItIsRebuilt) {
    Socket subscriber("subscriber", ClosePolicy::DropPending);
    subscriber.createAndConnect(Protocol::Sub, endpoint, 0);
    ASSERT_TRUE(server.offends(longEnough));
    EXPECT_FALSE(server.offends(someReconnections));

    subscriber.resetConnections();
    EXPECT_TRUE(server.offends(longEnough));
}

TEST_F(ServerThatBreaksTheProtocol, IsTriedAgainByAClientThatRepeatsItsRequest) {
    Socket client("client", ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, 0);
    char request = 'x';
    client.send(&request, 1);
    ASSERT_TRUE(server.offends(longEnough));
    EXPECT_FALSE(server.offends(someReconnections));

    client.send(&request, 1);
    EXPECT_TRUE(server.offends(longEnough));
}
