#include "support/Errors.h"
#include "support/Feed.h"
#include "support/NativeSocket.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::ZmqContextTerminationException;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr auto pollLine = "zmq_poll 1 items, events 1, 0 ms";
constexpr auto readLine = "zmq_recv 100000 bytes, flags 0";

class Flush : public testing::Test {
protected:
    void publish(int count) {
        for (int number = 0; number < count; ++number) {
            sendText(feed.publisher, std::to_string(number));
        }
        standIn.journal().clear();
    }

    PollResult::PollResult pollNow(Socket& socket) {
        std::string error;
        return socket.poll(0, error);
    }

    StandIn standIn;
    Feed feed;
};

} // namespace

TEST_F(Flush, WithNothingQueuedPollsOnce) {
    publish(0);

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine));
}

TEST_F(Flush, DiscardsEveryQueuedMessage) {
    publish(5);

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine, readLine, pollLine, readLine,
                                                       pollLine, readLine, pollLine, readLine, pollLine));
    EXPECT_EQ(PollResult::Timeout, pollNow(feed.subscriber));
}

TEST_F(Flush, LeavesTheSocketReceivingWhatComesLater) {
    publish(5);
    feed.subscriber.flushIncomingMessages();

    sendText(feed.publisher, "fresh");

    EXPECT_EQ("fresh", receiveText(feed.subscriber));
}

TEST_F(Flush, DiscardsAMessageLongerThanItsBuffer) {
    sendText(feed.publisher, std::string(150000, 'x'));
    sendText(feed.publisher, "after it");
    standIn.journal().clear();

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine, readLine, pollLine));
}

TEST_F(Flush, DiscardsAnEmptyMessage) {
    sendText(feed.publisher, "");
    standIn.journal().clear();

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine));
}

TEST_F(Flush, ReadsEachPartOfAMessageByItself) {
    const socket::SocketEndpoint other = freshEndpoint(Transport::Inproc);
    NativeSocket source(Protocol::Pub);
    source.bind(other);
    feed.subscriber.connect(other, 0);
    source.join();
    source.send("one", ZMQ_SNDMORE);
    source.send("two", ZMQ_SNDMORE);
    source.send("three");
    standIn.journal().clear();

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre(pollLine, readLine, pollLine, readLine, pollLine, readLine, pollLine));
}

TEST_F(Flush, DiscardsMessagesThatArriveMeanwhile) {
    publish(1);
    int arriving = 3;
    standIn.after("zmq_recv", [&] {
        if (arriving-- > 0) {
            sendText(feed.publisher, "late");
        }
    });

    feed.subscriber.flushIncomingMessages();

    EXPECT_EQ(4U, standIn.journal().count("zmq_recv"));
    EXPECT_EQ(PollResult::Timeout, pollNow(feed.subscriber));
}

TEST_F(Flush, CountsNothing) {
    feed.subscriber.activateStatistics(true);
    publish(60);

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().linesWith("gettimeofday"), IsEmpty());
    EXPECT_THAT(standIn.journal().linesWith("debug: "), IsEmpty());
}

TEST_F(Flush, OfAClosedSocketDoesNothing) {
    publish(1);
    feed.subscriber.close();
    standIn.journal().clear();

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(Flush, OfAPublishSocketDoesNothing) {
    publish(0);

    feed.publisher.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST(FlushOfOtherPatterns, LeavesRequestsAndRepliesWhereTheyAre) {
    StandIn standIn;
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    Socket client("client", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, 20000);
    client.createAndConnect(Protocol::Req, endpoint, 20000);
    sendText(client, "request");
    standIn.journal().clear();

    server.flushIncomingMessages();
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    EXPECT_EQ("request", receiveText(server));

    sendText(server, "reply");
    standIn.journal().clear();
    client.flushIncomingMessages();
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    EXPECT_EQ("reply", receiveText(client));
}

TEST_F(Flush, EndsSilentlyWhenAPollFails) {
    publish(5);
    standIn.fail("zmq_poll", EINTR, 3);

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine, readLine, pollLine));
    EXPECT_EQ("2", receiveText(feed.subscriber));
}

TEST_F(Flush, EndsSilentlyWhenAPollIsAnsweredWithoutInput) {
    publish(5);
    standIn.answer("zmq_poll", 1);

    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine));
    EXPECT_EQ("0", receiveText(feed.subscriber));
}

TEST_F(Flush, PassesOnWhatAPollThrows) {
    publish(5);
    standIn.fail("zmq_poll", ETERM, 2);

    EXPECT_EQ("Context terminated in poll() for socket [Socket feed]",
              textThrownBy<ZmqContextTerminationException>([&] { feed.subscriber.flushIncomingMessages(); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine));
}

TEST_F(Flush, ThrowsWhenAReadFails) {
    publish(5);
    standIn.fail("zmq_recv", EINTR, 2);

    EXPECT_EQ("Receive error in flushIncomingMessages: Interrupted system call on [Socket feed]",
              textThrownBy([&] { feed.subscriber.flushIncomingMessages(); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine, pollLine, readLine));
    EXPECT_EQ("1", receiveText(feed.subscriber));
}

TEST_F(Flush, ThrowsWhenTheContextIsTerminatedInARead) {
    publish(5);
    standIn.fail("zmq_recv", ETERM);

    EXPECT_EQ("Context terminated in recv() for socket [Socket feed]",
              textThrownBy<ZmqContextTerminationException>([&] { feed.subscriber.flushIncomingMessages(); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(pollLine, readLine));
}

} // namespace rk::tests
