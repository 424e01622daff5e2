#include "support/Errors.h"
#include "support/Feed.h"
#include "support/Patterns.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(PollResult::Input == 0 && PollResult::Timeout == 1 && PollResult::Failure == 2);

class SocketPoll : public testing::TestWithParam<Transport::Transport> {
protected:
    StandIn standIn;
    std::string error = "as it was";
};

INSTANTIATE_TEST_SUITE_P(On, SocketPoll, everyTransport(), nameOfTransport);

} // namespace

TEST_F(SocketPoll, WaitsForAsLongAsItIsTold) {
    Feed feed;
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(20, error));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
    EXPECT_EQ(PollResult::Timeout, feed.publisher.poll(0, error));
    EXPECT_EQ("as it was", error);
}

TEST_F(SocketPoll, ConsumesNothing) {
    Feed feed;
    sendText(feed.publisher, "news");
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(PollResult::Input, feed.subscriber.poll(0, error));
    }
    EXPECT_EQ("news", receiveText(feed.subscriber));
    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(0, error));
    EXPECT_EQ("as it was", error);
}

TEST_P(SocketPoll, WaitsForARequestAndItsReply) {
    const socket::SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server("server", ClosePolicy::DropPending);
    Socket client("client", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendText(client, "request");
    EXPECT_EQ(PollResult::Input, server.poll(patienceMs, error));
    receiveText(server);
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, client.poll(patienceMs, error));
    EXPECT_EQ("as it was", error);
}

TEST_F(SocketPoll, SeesNoRequestWhileAReplyIsOwed) {
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    Socket first("first", ClosePolicy::DropPending);
    Socket second("second", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    first.createAndConnect(Protocol::Req, endpoint, patienceMs);
    second.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendText(first, "request");
    receiveText(server);
    sendText(second, "next request");

    EXPECT_EQ(PollResult::Timeout, server.poll(0, error));
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, server.poll(0, error));
}

TEST_F(SocketPoll, FailsWithTheEventsWithoutInput) {
    Feed feed;
    standIn.answer("zmq_poll", 1);

    EXPECT_EQ(PollResult::Failure, feed.subscriber.poll(0, error));
    EXPECT_EQ("Unexpected error in poll(). revents=0 events=1 on [Socket feed]", error);
}

} // namespace rk::tests
