#include "support/Feed.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <limits>
#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr int zmqDefault = 1000;

struct Case {
    Protocol::Protocol protocol;
    int option;
    const char* failurePrefix;
};

class FifoOfPattern : public testing::TestWithParam<Case> {
protected:
    FifoOfPattern() {
        socket.create(GetParam().protocol);
        standIn.journal().clear();
    }

    std::string callWith(int size) const {
        return "zmq_setsockopt " + std::to_string(GetParam().option) + " = " + std::to_string(size) + " (4 bytes)";
    }

    std::string failure(const std::string& reason) const {
        return std::string("error: [Socket feed]: ") + GetParam().failurePrefix + reason + " on [Socket feed]";
    }

    StandIn standIn;
    Socket socket{"feed", ClosePolicy::DropPending};
};

constexpr auto emission = "Failed setting emission buffer size: ";
constexpr auto reception = "Failed setting reception buffer size: ";

INSTANTIATE_TEST_SUITE_P(OfEveryPattern, FifoOfPattern,
                         testing::Values(Case{Protocol::Pub, ZMQ_SNDHWM, emission},
                                         Case{Protocol::Req, ZMQ_SNDHWM, emission},
                                         Case{Protocol::Sub, ZMQ_RCVHWM, reception},
                                         Case{Protocol::Rep, ZMQ_RCVHWM, reception}),
                         [](const auto& tested) { return Protocol::ToString(tested.param.protocol); });

/// Sends numbers to a subscriber that does not receive meanwhile; how many of them come through, from the first on.
int countThatComeThrough(Feed& feed, int sent) {
    for (int number = 0; number < sent; ++number) {
        sendText(feed.publisher, std::to_string(number));
    }
    std::string error;
    int received = 0;
    while (feed.subscriber.poll(0, error) == PollResult::Input) {
        EXPECT_EQ(std::to_string(received), receiveText(feed.subscriber));
        ++received;
    }
    return received;
}

} // namespace

TEST_P(FifoOfPattern, SetsTheOneQueueOfThePattern) {
    socket.setInternalFifoSize(17);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(callWith(17)));
}

TEST_P(FifoOfPattern, HandsEverySizeOnUnchanged) {
    socket.setInternalFifoSize(0);
    socket.setInternalFifoSize(std::numeric_limits<int>::max());

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(callWith(0), callWith(2147483647)));
}

TEST_P(FifoOfPattern, LogsThatZmqRefusesANegativeSize) {
    EXPECT_NO_THROW(socket.setInternalFifoSize(-1));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(callWith(-1), failure("Invalid argument")));
}

TEST_P(FifoOfPattern, LogsTheErrorOfARefusal) {
    standIn.fail("zmq_setsockopt " + std::to_string(GetParam().option), ETERM);

    EXPECT_NO_THROW(socket.setInternalFifoSize(5));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(callWith(5), failure("Context was terminated")));
}

TEST_P(FifoOfPattern, DoesNothingOnceTheSocketIsClosed) {
    socket.close();
    standIn.journal().clear();

    socket.setInternalFifoSize(5);

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_P(FifoOfPattern, StartsAgainAtTheDefaultWithANewNativeSocket) {
    socket.setInternalFifoSize(5);
    standIn.journal().clear();

    socket.resetConnections();
    socket.create(GetParam().protocol);

    EXPECT_THAT(standIn.journal().linesWith("zmq_setsockopt"), IsEmpty());
}

TEST(Fifo, OfASocketNeverCreatedDoesNothing) {
    StandIn standIn;
    Socket socket("feed", ClosePolicy::DropPending);

    socket.setInternalFifoSize(-1);

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST(Fifo, LeavesTheSocketUsableAfterARefusal) {
    Feed feed(-2, -2);

    sendText(feed.publisher, "news");

    EXPECT_EQ("news", receiveText(feed.subscriber));
}

// Over inproc, 0MQ makes one queue of the publisher's and the subscriber's.

TEST(Fifo, LimitsWhatIsQueuedBetweenAPublisherAndASlowSubscriber) {
    Feed feed(10, 20);

    EXPECT_EQ(30, countThatComeThrough(feed, 1000));
}

TEST(Fifo, LimitsThePublishersQueueAlone) {
    Feed feed(10, Feed::defaultQueue);

    EXPECT_EQ(10 + zmqDefault, countThatComeThrough(feed, 5000));
}

TEST(Fifo, LimitsTheSubscribersQueueAlone) {
    Feed feed(Feed::defaultQueue, 20);

    EXPECT_EQ(zmqDefault + 20, countThatComeThrough(feed, 5000));
}

TEST(Fifo, OfSizeZeroIsWithoutLimit) {
    Feed feed(0, 20);

    EXPECT_EQ(5000, countThatComeThrough(feed, 5000));
}

TEST(Fifo, IsAsLongAsByDefaultAfterTheSocketIsRebuilt) {
    Feed feed(10, 20);

    feed.subscriber.resetConnections();
    feed.join();

    EXPECT_EQ(10 + zmqDefault, countThatComeThrough(feed, 5000));
}

} // namespace rk::tests
