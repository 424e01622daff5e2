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

#include <string>
#include <type_traits>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::ZmqContextTerminationException;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr auto timeRanOut = "Receive error: Resource temporarily unavailable on [Socket feed]";

static_assert(std::is_same_v<int, decltype(std::declval<Socket>().receive(nullptr, 0UL))>);

} // namespace

TEST(Receive, ReturnsTheLengthAndFillsTheBufferThatFar) {
    Feed feed;
    std::string buffer(8, '-');
    sendText(feed.publisher, "news");

    EXPECT_EQ(4, feed.subscriber.receive(buffer.data(), buffer.size()));

    EXPECT_EQ("news----", buffer);
}

TEST(Receive, IsOneCallThatMayBlockAndNothingElse) {
    StandIn standIn;
    Feed feed;
    char buffer[8];
    sendText(feed.publisher, "news");
    standIn.journal().clear();

    feed.subscriber.receive(buffer, sizeof buffer);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 8 bytes, flags 0"));
}

TEST(Receive, TakesOneMessageAtATimeInTheOrderSent) {
    Feed feed;
    sendText(feed.publisher, "first");
    sendText(feed.publisher, "second");

    EXPECT_EQ("first", receiveText(feed.subscriber));
    EXPECT_EQ("second", receiveText(feed.subscriber));
}

TEST(Receive, OfAnEmptyMessageReturnsZero) {
    Feed feed;
    char buffer[] = "as it was";
    sendText(feed.publisher, "");

    EXPECT_EQ(0, feed.subscriber.receive(buffer, sizeof buffer));

    EXPECT_STREQ("as it was", buffer);
}

TEST(Receive, OfALongerMessageReturnsItsWholeLengthAndStoresItsBeginning) {
    Feed feed;
    std::string buffer(8, '-');
    sendText(feed.publisher, "0123456789");
    sendText(feed.publisher, "next");

    EXPECT_EQ(10, feed.subscriber.receive(buffer.data(), 4));

    EXPECT_EQ("0123----", buffer);
    EXPECT_EQ("next", receiveText(feed.subscriber));
}

TEST(Receive, WithoutAnyBufferReturnsTheLength) {
    Feed feed;
    sendText(feed.publisher, "0123456789");

    EXPECT_EQ(10, feed.subscriber.receive(nullptr, 0));
}

TEST(Receive, HandsASizeOfMoreThan32BitsOn) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.answer("zmq_recv", 7);

    EXPECT_EQ(7, feed.subscriber.receive(nullptr, 4294967303UL));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 4294967303 bytes, flags 0"));
}

TEST(Receive, OnASocketNeverCreatedThrows) {
    StandIn standIn;
    Socket socket("feed", ClosePolicy::DropPending);

    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { receiveText(socket); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST(Receive, OnAClosedSocketThrows) {
    Feed feed;
    sendText(feed.publisher, "news");
    feed.subscriber.close();

    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { receiveText(feed.subscriber); }));
}

TEST(Receive, ThrowsWhenTheTimeRunsOutAndTriesNoSecondTime) {
    StandIn standIn;
    Feed feed;
    feed.subscriber.connect(freshEndpoint(Transport::Ipc), 1);
    standIn.journal().clear();

    EXPECT_EQ(timeRanOut, textThrownBy([&] { receiveText(feed.subscriber); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

TEST(Receive, CountsNothingWhenTheTimeRunsOut) {
    StandIn standIn;
    Feed feed;
    feed.subscriber.connect(freshEndpoint(Transport::Ipc), 1);
    feed.subscriber.activateStatistics(true);
    standIn.journal().clear();

    for (int block = 0; block < 50; ++block) {
        EXPECT_EQ(timeRanOut, textThrownBy([&] { receiveText(feed.subscriber); }));
    }

    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, standIn.journal().count("debug: "));
}

TEST(Receive, CountsTheWholeLengthOfEveryMessageThoughItWasCut) {
    StandIn standIn;
    Feed feed;
    feed.subscriber.activateStatistics(true);
    standIn.setClock(100.0);
    standIn.journal().clear();
    const auto passOne = [&](std::size_t size) {
        char buffer[4];
        sendText(feed.publisher, std::string(size, 'x'));
        EXPECT_EQ(static_cast<int>(size), feed.subscriber.receive(buffer, sizeof buffer));
    };

    for (int block = 1; block < 50; ++block) {
        passOne(100);
    }
    EXPECT_EQ(0U, standIn.journal().count("debug: "));
    standIn.setClock(101.0);
    passOne(1048576 - 49 * 100);

    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre("debug: [Socket feed]: Rate is 1.000000 Mbytes/s = 8.000000 Mbits/s, 50.000000 Blocks/s"));
}

TEST(Receive, CountsNothingWhileStatisticsAreOff) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();

    for (int block = 0; block < 100; ++block) {
        sendText(feed.publisher, "news");
        EXPECT_EQ("news", receiveText(feed.subscriber));
    }

    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, standIn.journal().count("debug: "));
}

TEST(Receive, IsNeverCapped) {
    StandIn standIn;
    Feed feed;
    feed.subscriber.setTargetBitRate(1);
    standIn.journal().clear();

    for (int block = 0; block < 3; ++block) {
        sendText(feed.publisher, "news");
        receiveText(feed.subscriber);
    }

    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, standIn.journal().count("usleep"));
}

TEST(Receive, OfARequestSocketOutOfTurnThrowsWithoutAnyRepair) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, freshEndpoint(Transport::Ipc), 20000);
    standIn.journal().clear();

    EXPECT_EQ("Receive error: Operation cannot be accomplished in current state on [Socket cmd]",
              textThrownBy([&] { receiveText(socket); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

TEST(Receive, RefusedOutOfTurnOnASubscribeSocketThrowsWithoutAnyRepair) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.fail("zmq_recv", EFSM);

    EXPECT_EQ("Receive error: Operation cannot be accomplished in current state on [Socket feed]",
              textThrownBy([&] { receiveText(feed.subscriber); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

TEST(Receive, OnAPublishSocketThrowsThatItIsNotSupported) {
    Feed feed;

    EXPECT_EQ("Receive error: Operation not supported on [Socket source]",
              textThrownBy([&] { receiveText(feed.publisher); }));
}

TEST(Receive, InterruptedByASignalThrowsAndIsNotRepeated) {
    StandIn standIn;
    Feed feed;
    std::string text;
    standIn.journal().clear();

    interrupt([&] { text = textThrownBy([&] { receiveText(feed.subscriber); }); });

    EXPECT_EQ("Receive error: Interrupted system call on [Socket feed]", text);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

TEST(Receive, ThatFailsLeavesTheSocketUsable) {
    StandIn standIn;
    Feed feed;
    sendText(feed.publisher, "news");
    standIn.fail("zmq_recv", EINTR);
    textThrownBy([&] { receiveText(feed.subscriber); });

    EXPECT_EQ("news", receiveText(feed.subscriber));
}

TEST(Receive, InATerminatedContextThrowsThat) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.fail("zmq_recv", ETERM);

    EXPECT_EQ("Context terminated in recv() for socket [Socket feed]",
              textThrownBy<ZmqContextTerminationException>([&] { receiveText(feed.subscriber); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

} // namespace rk::tests
