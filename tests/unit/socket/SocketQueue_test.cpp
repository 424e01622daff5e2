#include "support/Calls.h"
#include "support/Feed.h"
#include "support/Test.h"

#include <zmq.h>

namespace rk::tests {

namespace {

constexpr int zmqDefault = 1000;

class SocketQueueOf : public testing::TestWithParam<Protocol::Protocol> {
protected:
    SocketQueueOf() {
        socket.create(GetParam());
        standIn.journal().clear();
    }

    std::string failure(const std::string& reason) const {
        return std::string("error: [Socket feed]: Failed setting ") + (sends ? "emission" : "reception") +
               " buffer size: " + reason + " on [Socket feed]";
    }

    const bool sends = GetParam() == Protocol::Pub || GetParam() == Protocol::Req;
    const int option = sends ? ZMQ_SNDHWM : ZMQ_RCVHWM;
    StandIn standIn;
    Socket socket{"feed", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(Socket, SocketQueueOf, testing::ValuesIn(everyPattern), nameOfPattern);

/// The queue sizes of a publisher and a subscriber, and how many messages the queues hold together. Over inproc, ZeroMQ
/// joins both into one queue.
struct Lengths {
    int publisher;
    int subscriber;
    int both;
};

class SocketQueue : public testing::TestWithParam<Lengths> {
protected:
    /// Returns how many of 5,000 messages arrive.
    static int countThatComeThrough(Feed& feed) {
        for (int number = 0; number < 5000; ++number) {
            sendText(feed.publisher, std::to_string(number));
        }
        std::string error;
        int received = 0;
        while (feed.subscriber.poll(0, error) == PollResult::Input) {
            EXPECT_EQ(std::to_string(received++), receiveText(feed.subscriber));
        }
        return received;
    }
};

INSTANTIATE_TEST_SUITE_P(Of, SocketQueue,
                         testing::Values(Lengths{10, 20, 30}, Lengths{10, Feed::defaultQueue, 10 + zmqDefault},
                                         Lengths{Feed::defaultQueue, 20, zmqDefault + 20}, Lengths{0, 20, 5000},
                                         Lengths{-2, -2, 2 * zmqDefault}));

} // namespace

TEST_P(SocketQueueOf, LogsWhenZmqRejectsTheSize) {
    socket.setInternalFifoSize(-1);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre(calls::set(option, -1), failure("Invalid argument")));

    standIn.journal().clear();
    standIn.fail("zmq_setsockopt " + std::to_string(option), ETERM);
    socket.setInternalFifoSize(5);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre(calls::set(option, 5), failure("Context was terminated")));
}

TEST_P(SocketQueueOf, DoesNothingOnAClosedSocket) {
    socket.close();
    standIn.journal().clear();
    socket.setInternalFifoSize(5);
    Socket("never", ClosePolicy::DropPending).setInternalFifoSize(-1);

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_P(SocketQueue, LimitsTheQueuedMessages) {
    Feed feed(GetParam().publisher, GetParam().subscriber);
    EXPECT_EQ(GetParam().both, countThatComeThrough(feed));
}

TEST_F(SocketQueue, HasTheDefaultSizeAfterARebuild) {
    Feed feed(10, 20);
    feed.subscriber.resetConnections();
    feed.join();

    EXPECT_EQ(10 + zmqDefault, countThatComeThrough(feed));
}

} // namespace rk::tests
