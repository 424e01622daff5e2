#include "support/Feed.h"
#include "support/NativeSocket.h"
#include "support/Test.h"

#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

namespace rk::tests {

namespace {

constexpr auto pollLine = "zmq_poll 1 items, events 1, 0 ms";
constexpr auto readLine = "zmq_recv 100000 bytes, flags 0";

class SocketFlush : public testing::Test {
protected:
    void publish(int count) {
        for (int number = 0; number < count; ++number) {
            sendText(feed.publisher, std::to_string(number));
        }
        standIn.journal().clear();
    }

    /// Returns the calls of a flush that reads `count` messages.
    static std::vector<std::string> reads(int count) {
        std::vector<std::string> lines;
        for (int number = 0; number < count; ++number) {
            lines.insert(lines.end(), {pollLine, readLine});
        }
        lines.emplace_back(pollLine);
        return lines;
    }

    StandIn standIn;
    Feed feed;
};

} // namespace

TEST_F(SocketFlush, PollsAndReadsInTurn) {
    for (const int count : {0, 1, 5}) {
        publish(count);
        feed.subscriber.flushIncomingMessages();
        EXPECT_EQ(reads(count), standIn.journal().lines());
    }
}

TEST_F(SocketFlush, ReadsEachPartSeparately) {
    const SocketEndpoint other = freshEndpoint(Transport::Inproc);
    NativeSocket source(Protocol::Pub, other);
    feed.subscriber.connect(other, 0);
    source.join();
    source.send("one", ZMQ_SNDMORE);
    source.send("two", ZMQ_SNDMORE);
    source.send("");
    standIn.journal().clear();

    feed.subscriber.flushIncomingMessages();

    EXPECT_EQ(reads(3), standIn.journal().lines());
}

TEST_F(SocketFlush, CountsNothing) {
    feed.subscriber.activateStatistics(true);
    publish(60);
    feed.subscriber.flushIncomingMessages();

    EXPECT_THAT(standIn.journal().linesWith("gettimeofday"), IsEmpty());
}

TEST_F(SocketFlush, DoesNothingUnlessASubscriber) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer server("server", Protocol::Rep, endpoint);
    Peer client("client", Protocol::Req, endpoint);
    sendText(client, "request");
    publish(1);
    feed.subscriber.close();
    standIn.journal().clear();

    for (Socket* socket : std::initializer_list<Socket*>{&server, &client, &feed.publisher, &feed.subscriber}) {
        socket->flushIncomingMessages();
    }
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    EXPECT_EQ("request", receiveText(server));
}

TEST_F(SocketFlush, EndsSilentlyWhenAPollFails) {
    publish(5);
    standIn.fail("zmq_poll", EINTR, 3);
    feed.subscriber.flushIncomingMessages();
    EXPECT_EQ(reads(2), standIn.journal().lines());
    EXPECT_EQ("2", receiveText(feed.subscriber));

    standIn.answer("zmq_poll", 1); // with no input
    feed.subscriber.flushIncomingMessages();
    EXPECT_EQ("3", receiveText(feed.subscriber));
}

TEST_F(SocketFlush, ThrowsWhenAReadFails) {
    publish(5);
    standIn.fail("zmq_recv", EINTR, 2);

    EXPECT_EQ("Receive error in flushIncomingMessages: Interrupted system call on [Socket feed]",
              textThrownBy([&] { feed.subscriber.flushIncomingMessages(); }));
    EXPECT_EQ("1", receiveText(feed.subscriber));
}

TEST_F(SocketFlush, ThrowsInATerminatedContext) {
    for (const auto& [function, operation] : {std::pair("zmq_poll", "poll()"), std::pair("zmq_recv", "recv()")}) {
        publish(5);
        standIn.fail(function, ETERM, 2);

        EXPECT_EQ(std::string("Context terminated in ") + operation + " for socket [Socket feed]",
                  textThrownBy<ZmqContextTerminationException>([&] { feed.subscriber.flushIncomingMessages(); }));
        EXPECT_EQ(function, standIn.journal().lines().back().substr(0, 8));
    }
}

} // namespace rk::tests
