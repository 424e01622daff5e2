#include "support/Calls.h"
#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <zmq.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

static_assert(std::is_enum_v<ClosePolicy::ClosePolicy>);
static_assert(std::is_convertible_v<ClosePolicy::ClosePolicy, int>, "a plain enumeration");
static_assert(sizeof(ClosePolicy::ClosePolicy) == 4);
static_assert(ClosePolicy::DropPending == 0 && ClosePolicy::LingerTwoSeconds == 1 && ClosePolicy::WaitForDelivery == 2);

/// The number of a policy, and its linger time in milliseconds.
class ClosePolicyOf : public testing::TestWithParam<std::pair<int, int>> {};

INSTANTIATE_TEST_SUITE_P(Number, ClosePolicyOf,
                         testing::Values(std::pair(0, 0), std::pair(1, 2000), std::pair(2, -1), std::pair(3, -1),
                                         std::pair(-1, -1), std::pair(std::numeric_limits<int>::max(), -1),
                                         std::pair(std::numeric_limits<int>::min(), -1)));

/// A socket that is destroyed with an unsent request, because its server does not exist yet.
class ClosePolicyOn : public testing::TestWithParam<Transport::Transport> {
protected:
    static void leaveRequest(ClosePolicy::ClosePolicy policy, const SocketEndpoint& endpoint) {
        Socket client("client", policy);
        client.createAndConnect(Protocol::Req, endpoint, 0);
        sendText(client, "left");
    }

    StandIn standIn;
    Socket server{"server", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(Wire, ClosePolicyOn, testing::Values(Transport::Tcp, Transport::Ipc), nameOfTransport);

} // namespace

TEST_P(ClosePolicyOf, SetsTheLingerTime) {
    StandIn standIn;
    ZmqContext context;
    for (const auto pattern : everyPattern) {
        Socket socket("cmd", static_cast<ClosePolicy::ClosePolicy>(GetParam().first));
        void* const handle = context.handleOf(Protocol::ToNativeProtocol(pattern));
        const int other = 12345; // differs from ZeroMQ's default and from every policy
        zmq_setsockopt(handle, ZMQ_LINGER, &other, sizeof other);
        standIn.answer("zmq_socket", handle);
        socket.createAndConnect(pattern, freshEndpoint(Transport::Ipc), 0);

        EXPECT_EQ(pattern == Protocol::Sub ? 0 : GetParam().second, optionOf(handle, ZMQ_LINGER));
    }
}

TEST(ClosePolicy, IsChangedOnlyBySubscribers) {
    for (const bool fails : {true, false}) {
        StandIn standIn;
        Socket socket("cmd", ClosePolicy::LingerTwoSeconds);
        const auto lingerOf = [&](Protocol::Protocol pattern) {
            standIn.journal().clear();
            socket.createAndConnect(pattern, freshEndpoint(Transport::Ipc), 0);
            return standIn.journal().linesWith("zmq_setsockopt");
        };
        EXPECT_THAT(lingerOf(Protocol::Req), ElementsAre(calls::set(ZMQ_LINGER, 2000)));
        socket.create(Protocol::Sub);
        socket.close();
        EXPECT_THAT(lingerOf(Protocol::Pub), ElementsAre(calls::set(ZMQ_LINGER, 2000), calls::set(ZMQ_LINGER, 2000)));
        if (fails) {
            standIn.fail("zmq_connect", ENOMEM);
            EXPECT_THROW(lingerOf(Protocol::Sub), std::runtime_error);
        } else {
            lingerOf(Protocol::Sub);
        }
        EXPECT_THAT(lingerOf(Protocol::Req), ElementsAre(calls::set(ZMQ_LINGER, 0)));
        EXPECT_THAT(lingerOf(Protocol::Pub), ElementsAre(calls::set(ZMQ_LINGER, 0), calls::set(ZMQ_LINGER, 0)));
    }
}

TEST_P(ClosePolicyOn, KeepsARequestForALaterServer) {
    for (const auto policy : {ClosePolicy::WaitForDelivery, ClosePolicy::LingerTwoSeconds}) {
        const SocketEndpoint endpoint = freshEndpoint(GetParam());
        leaveRequest(policy, endpoint);
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        EXPECT_EQ("left", receiveText(server));
        server.close();
    }
}

TEST_P(ClosePolicyOn, DropsARequest) {
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    {
        // Its destructor waits until ZeroMQ has closed the socket and dropped the request.
        ZmqContext context;
        standIn.answer("zmq_socket", context.handleOf(ZMQ_REQ));
        leaveRequest(ClosePolicy::DropPending, endpoint);
    }
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    Peer later("later", Protocol::Req, endpoint, ClosePolicy::DropPending, 0);
    sendText(later, "later");

    EXPECT_EQ("later", receiveText(server));
}

} // namespace rk::tests
