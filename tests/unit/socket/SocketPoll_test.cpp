#include "support/Feed.h"
#include "support/Test.h"

#include <algorithm>
#include <climits>

namespace rk::tests {

namespace {

class SocketPoll : public testing::TestWithParam<Transport::Transport> {
protected:
    StandIn standIn;
    std::string error = "as it was";
};

INSTANTIATE_TEST_SUITE_P(On, SocketPoll, everyTransport(), nameOfTransport);

} // namespace

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
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Peer server("server", Protocol::Rep, endpoint);
    Peer client("client", Protocol::Req, endpoint);
    sendText(client, "request");
    EXPECT_EQ(PollResult::Input, server.poll(patienceMs, error));
    receiveText(server);
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, client.poll(patienceMs, error));
    EXPECT_EQ("as it was", error);
}

TEST_F(SocketPoll, ReportsNoRequestWhileAReplyIsOwed) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer server("server", Protocol::Rep, endpoint);
    Peer first("first", Protocol::Req, endpoint);
    Peer second("second", Protocol::Req, endpoint);
    sendText(first, "request");
    receiveText(server);
    sendText(second, "next request");

    EXPECT_EQ(PollResult::Timeout, server.poll(0, error));
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, server.poll(0, error));
}

TEST_F(SocketPoll, ReportsEventsOtherThanInput) {
    Feed feed;
    standIn.answer("zmq_poll", 1);

    EXPECT_EQ(PollResult::Failure, feed.subscriber.poll(0, error));
    EXPECT_EQ("Unexpected error in poll(). revents=0 events=1 on [Socket feed]", error);
}

TEST_F(SocketPoll, PassesTheTimeout) {
    Feed feed;
    for (const unsigned int timeout : {0U, 2147483647U, 2147483648U, 4294967295U}) {
        standIn.journal().clear();
        standIn.answer("zmq_poll", 0);
        EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(timeout, error));
        EXPECT_THAT(standIn.journal().lines(),
                    ElementsAre("zmq_poll 1 items, events 1, " +
                                std::to_string(std::min<unsigned long>(timeout, LONG_MAX)) + " ms"));
    }
    EXPECT_EQ("as it was", error);
}

} // namespace rk::tests
