#include "support/Errors.h"
#include "support/Feed.h"
#include "support/Interruption.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <chrono>
#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::ZmqContextTerminationException;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr unsigned int patienceMs = 20000;

class PollOverTransport : public testing::TestWithParam<Transport::Transport> {
protected:
    PollOverTransport() {
        const socket::SocketEndpoint endpoint = freshEndpoint(GetParam());
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    }

    StandIn standIn;
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
    std::string error = "as it was";
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, PollOverTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& tested) { return Transport::ToString(tested.param); });

} // namespace

TEST(PollResult, HasTheNumbersThatCallersCompare) {
    EXPECT_EQ(0, PollResult::Input);
    EXPECT_EQ(1, PollResult::Timeout);
    EXPECT_EQ(2, PollResult::Failure);
}

TEST(Poll, OnASocketNeverCreatedThrows) {
    StandIn standIn;
    Socket socket("feed", ClosePolicy::DropPending);
    std::string error = "as it was";

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));

    EXPECT_EQ("as it was", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST(Poll, OnAClosedSocketThrows) {
    Feed feed;
    std::string error;
    feed.subscriber.close();

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { feed.subscriber.poll(0, error); }));
}

TEST(Poll, AsksZmqOnceForInputOfTheOneSocket) {
    StandIn standIn;
    Feed feed;
    std::string error;
    standIn.journal().clear();

    feed.subscriber.poll(3, error);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 3 ms"));
}

TEST(Poll, WithNothingQueuedTimesOutAndLeavesTheErrorAsItWas) {
    Feed feed;
    std::string error = "as it was";

    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(0, error));

    EXPECT_EQ("as it was", error);
}

TEST(Poll, WaitsForAsManyMillisecondsAsItIsGiven) {
    Feed feed;
    std::string error;
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(20, error));

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
}

TEST(Poll, WithAQueuedMessageTellsOfInputAndLeavesTheErrorAsItWas) {
    Feed feed;
    std::string error = "as it was";
    sendText(feed.publisher, "news");

    EXPECT_EQ(PollResult::Input, feed.subscriber.poll(0, error));

    EXPECT_EQ("as it was", error);
}

TEST(Poll, DoesNotConsumeTheMessage) {
    Feed feed;
    std::string error;
    sendText(feed.publisher, "news");
    feed.subscriber.poll(0, error);

    EXPECT_EQ(PollResult::Input, feed.subscriber.poll(0, error));

    EXPECT_EQ("news", receiveText(feed.subscriber));
    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(0, error));
}

TEST(Poll, HandsTheLongestTimeoutOnUnchanged) {
    StandIn standIn;
    Feed feed;
    std::string error;
    sendText(feed.publisher, "news");
    standIn.journal().clear();

    EXPECT_EQ(PollResult::Input, feed.subscriber.poll(4294967295U, error));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 4294967295 ms"));
}

TEST_P(PollOverTransport, WaitsForARequestAndThenForItsReply) {
    sendText(client, "request");
    EXPECT_EQ(PollResult::Input, server.poll(patienceMs, error));
    EXPECT_EQ("request", receiveText(server));
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, client.poll(patienceMs, error));
    EXPECT_EQ("reply", receiveText(client));
    EXPECT_EQ("as it was", error);
}

TEST(Poll, OfAReplySocketThatOwesAReplyTellsOfNoInputUntilItHasReplied) {
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    Socket first("first", ClosePolicy::DropPending);
    Socket second("second", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    first.createAndConnect(Protocol::Req, endpoint, patienceMs);
    second.createAndConnect(Protocol::Req, endpoint, patienceMs);
    std::string error;
    sendText(first, "request");
    receiveText(server);
    sendText(second, "next request");

    EXPECT_EQ(PollResult::Timeout, server.poll(0, error));
    sendText(server, "reply");
    EXPECT_EQ(PollResult::Input, server.poll(0, error));
    EXPECT_EQ("next request", receiveText(server));
}

TEST(Poll, OfAPublishSocketTimesOut) {
    Feed feed;
    std::string error = "as it was";

    EXPECT_EQ(PollResult::Timeout, feed.publisher.poll(0, error));

    EXPECT_EQ("as it was", error);
}

TEST(Poll, InterruptedByASignalFailsWithTheTextOfTheError) {
    StandIn standIn;
    Feed feed;
    std::string error = "as it was";
    auto result = PollResult::Input;
    standIn.journal().clear();

    interrupt([&] { result = feed.subscriber.poll(patienceMs, error); });

    EXPECT_EQ(PollResult::Failure, result);
    EXPECT_EQ("Interrupted system call on [Socket feed]", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 20000 ms"));
}

TEST(Poll, ThatFailsLogsNothingAndLeavesTheSocketUsable) {
    StandIn standIn;
    Feed feed;
    std::string error = "as it was";
    sendText(feed.publisher, "news");
    standIn.journal().clear();
    standIn.fail("zmq_poll", EFAULT);

    EXPECT_EQ(PollResult::Failure, feed.subscriber.poll(0, error));

    EXPECT_EQ("Bad address on [Socket feed]", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 0 ms"));
    EXPECT_EQ("news", receiveText(feed.subscriber));
}

TEST(Poll, AnsweredWithoutInputFailsWithTheEvents) {
    StandIn standIn;
    Feed feed;
    std::string error = "as it was";
    standIn.journal().clear();
    standIn.answer("zmq_poll", 1);

    EXPECT_EQ(PollResult::Failure, feed.subscriber.poll(0, error));

    EXPECT_EQ("Unexpected error in poll(). revents=0 events=1 on [Socket feed]", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 0 ms"));
}

TEST(Poll, InATerminatedContextThrowsAndLeavesTheErrorAsItWas) {
    StandIn standIn;
    Feed feed;
    std::string error = "as it was";
    standIn.journal().clear();
    standIn.fail("zmq_poll", ETERM);

    EXPECT_EQ("Context terminated in poll() for socket [Socket feed]",
              textThrownBy<ZmqContextTerminationException>([&] { feed.subscriber.poll(0, error); }));

    EXPECT_EQ("as it was", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_poll 1 items, events 1, 0 ms"));
}

} // namespace rk::tests
