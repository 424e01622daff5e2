#include "support/Errors.h"
#include "support/Feed.h"
#include "support/NativeSocket.h"
#include "support/StandIn.h"
#include "support/Texts.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <new>
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

class ReceiveProtoBuf : public testing::Test {
protected:
    ReceiveProtoBuf() { standIn.journal().clear(); }

    /// Sends a message whose serialised form is `size` bytes long, 2 to 129.
    void sendOfSize(std::size_t size) {
        Text message;
        message.set_text(std::string(size - 2, 'x'));
        EXPECT_EQ(size, message.ByteSizeLong());
        sendText(feed.publisher, message.SerializeAsString());
    }

    void receive(unsigned int size) { feed.subscriber.receiveProtoBuf(&received, size); }

    /// The sizes of the buffer, as offered to 0MQ.
    std::vector<std::string> offers() { return standIn.journal().linesWith("zmq_recv"); }

    StandIn standIn;
    Feed feed;
    Text received;
};

/// The size as it was asked for does not fit into a signed number, against which lengths are compared.
class ReceiveProtoBufHuge : public ReceiveProtoBuf, public testing::WithParamInterface<unsigned int> {};

INSTANTIATE_TEST_SUITE_P(Sizes, ReceiveProtoBufHuge, testing::Values(2147483648U, 4294967295U));

static_assert(std::is_same_v<void, decltype(std::declval<Socket>().receiveProtoBuf(nullptr, 0U))>);

} // namespace

TEST_F(ReceiveProtoBuf, ParsesTheMessage) {
    Text sent;
    sent.set_text("news");
    feed.publisher.sendProtoBuf(&sent);

    receive(1000);

    EXPECT_EQ("news", received.text());
}

TEST_F(ReceiveProtoBuf, IsOneCallOfTheSizeAndNothingElse) {
    sendOfSize(10);
    standIn.journal().clear();

    receive(1000);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 1000 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, ReplacesWhatTheMessageHeld) {
    received.set_text("as it was");
    sendText(feed.publisher, "");

    receive(1000);

    EXPECT_FALSE(received.has_text());
}

TEST_F(ReceiveProtoBuf, IntoNoMessageThrowsWhateverTheSize) {
    Socket closed("closed", ClosePolicy::DropPending);
    for (const unsigned int size : {0U, 1U, 1000U}) {
        EXPECT_EQ("Socket: Cannot receive on a NULL message",
                  textThrownBy([&] { feed.subscriber.receiveProtoBuf(nullptr, size); }));
        EXPECT_EQ("Socket: Cannot receive on a NULL message",
                  textThrownBy([&] { closed.receiveProtoBuf(nullptr, size); }));
    }
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(ReceiveProtoBuf, WithSizeZeroThrowsThoughABufferIsThere) {
    sendOfSize(10);
    receive(1000);
    standIn.journal().clear();

    EXPECT_EQ("[Socket feed]: Wrong receive buffer size", textThrownBy([&] { receive(0); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(ReceiveProtoBuf, WithSizeZeroIsReportedBeforeTheClosedSocket) {
    feed.subscriber.close();

    EXPECT_EQ("[Socket feed]: Wrong receive buffer size", textThrownBy([&] { receive(0); }));
}

TEST_F(ReceiveProtoBuf, OnAClosedSocketThrowsWithTheBufferGrown) {
    Socket socket("updates", ClosePolicy::DropPending);
    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { socket.receiveProtoBuf(&received, 777); }));
    EXPECT_THAT(offers(), IsEmpty());

    socket.create(Protocol::Sub);
    standIn.fail("zmq_recv", EINTR);
    textThrownBy([&] { socket.receiveProtoBuf(&received, 1); });

    EXPECT_THAT(offers(), ElementsAre("zmq_recv 777 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, GrowsTheBufferAndNeverShrinksIt) {
    for (const unsigned int size : {10U, 9U, 11U, 10U, 4096U, 1U}) {
        sendOfSize(10);
        receive(size);
    }

    EXPECT_THAT(offers(), ElementsAre("zmq_recv 10 bytes, flags 0", "zmq_recv 10 bytes, flags 0",
                                      "zmq_recv 11 bytes, flags 0", "zmq_recv 11 bytes, flags 0",
                                      "zmq_recv 4096 bytes, flags 0", "zmq_recv 4096 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, UsesAnEarlierBufferWhole) {
    sendOfSize(10);
    receive(131072);
    Text sent;
    sent.set_text(std::string(100000, 'x'));
    feed.publisher.sendProtoBuf(&sent);

    receive(1000);

    EXPECT_EQ(sent.text(), received.text());
}

TEST_F(ReceiveProtoBuf, KeepsTheBufferThroughCloseAndCreate) {
    sendOfSize(10);
    receive(131072);
    feed.subscriber.close();
    feed.subscriber.createAndConnect(Protocol::Sub, feed.endpoint, 20000);
    feed.join();
    sendOfSize(10);

    receive(1);

    EXPECT_THAT(offers(), ElementsAre("zmq_recv 131072 bytes, flags 0", "zmq_recv 131072 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, TakesAMessageOfExactlyTheSize) {
    sendOfSize(100);

    receive(100);

    EXPECT_EQ(98U, received.text().size());
}

TEST_F(ReceiveProtoBuf, RefusesAMessageOneByteLonger) {
    sendOfSize(101);

    EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 101, Actual: 100",
              textThrownBy([&] { receive(100); }));
}

TEST_F(ReceiveProtoBuf, NamesTheSizeOfTheBufferNotThatOfTheCall) {
    sendOfSize(10);
    receive(100);
    sendOfSize(101);

    EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 101, Actual: 100",
              textThrownBy([&] { receive(50); }));
}

TEST_F(ReceiveProtoBuf, ConsumesAMessageThatIsTooLongAndKeepsTheBuffer) {
    sendOfSize(101);
    sendOfSize(60);
    textThrownBy([&] { receive(100); });

    receive(1);

    EXPECT_EQ(58U, received.text().size());
    EXPECT_THAT(offers(), ElementsAre("zmq_recv 100 bytes, flags 0", "zmq_recv 100 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, LeavesTheMessageAloneWhenTheReceivedOneIsTooLong) {
    received.set_text("as it was");
    sendOfSize(101);

    textThrownBy([&] { receive(100); });

    EXPECT_EQ("as it was", received.text());
}

TEST_F(ReceiveProtoBuf, TakesAnEmptyMessageIfTheTypeRequiresNothing) {
    sendText(feed.publisher, "");

    receive(1);

    EXPECT_EQ("", received.text());
}

TEST_F(ReceiveProtoBuf, RefusesAnEmptyMessageIfTheTypeRequiresFields) {
    Command command;
    sendText(feed.publisher, "");

    EXPECT_EQ("[Socket feed]: Failed deserializing message",
              textThrownBy([&] { feed.subscriber.receiveProtoBuf(&command, 1000); }));
}

TEST_F(ReceiveProtoBuf, RefusesBytesThatAreNoMessageAndConsumesThem) {
    sendText(feed.publisher, "\xff\xff\xff");
    sendOfSize(10);

    EXPECT_EQ("[Socket feed]: Failed deserializing message", textThrownBy([&] { receive(1000); }));

    receive(1);
    EXPECT_EQ(8U, received.text().size());
    EXPECT_THAT(offers(), ElementsAre("zmq_recv 1000 bytes, flags 0", "zmq_recv 1000 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, OfSizeOneHasABufferOfOneByte) {
    sendText(feed.publisher, "x");

    EXPECT_EQ("[Socket feed]: Failed deserializing message", textThrownBy([&] { receive(1); }));

    EXPECT_THAT(offers(), ElementsAre("zmq_recv 1 bytes, flags 0"));
}

TEST_F(ReceiveProtoBuf, RefusesAMessageThatLacksARequiredField) {
    Command command;
    sendText(feed.publisher, std::string("\x08\x07", 2));

    EXPECT_EQ("[Socket feed]: Failed deserializing message",
              textThrownBy([&] { feed.subscriber.receiveProtoBuf(&command, 1000); }));

    EXPECT_EQ(7, command.id());
}

TEST_F(ReceiveProtoBuf, ParsesNoByteThatWasNotReceived) {
    sendOfSize(100);
    receive(1000);
    sendOfSize(10);

    receive(1000);

    EXPECT_EQ(8U, received.text().size());
}

TEST_F(ReceiveProtoBuf, CountsMessagesThatItRefuses) {
    feed.subscriber.activateStatistics(true);
    standIn.setClock(100.0);
    for (int pair = 0; pair < 25; ++pair) {
        EXPECT_EQ(0U, standIn.journal().count("debug: "));
        sendOfSize(101);
        EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 101, Actual: 100",
                  textThrownBy([&] { receive(100); }));
        sendText(feed.publisher, "\xff\xff\xff");
        standIn.setClock(101.0);
        EXPECT_EQ("[Socket feed]: Failed deserializing message", textThrownBy([&] { receive(100); }));
    }

    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre("debug: [Socket feed]: Rate is 0.002480 Mbytes/s = 0.019836 Mbits/s, 50.000000 Blocks/s"));
}

TEST_F(ReceiveProtoBuf, OfARequestThatItRefusesLeavesTheReplySocketOwingAReply) {
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, 20000);
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    client.send("\xff\xff\xff");
    EXPECT_EQ("[Socket server]: Failed deserializing message",
              textThrownBy([&] { server.receiveProtoBuf(&received, 1000); }));

    sendText(server, "what was that?");

    EXPECT_EQ("what was that?", client.receive());
}

TEST_F(ReceiveProtoBuf, PassesOnWhatReceiveThrows) {
    feed.subscriber.connect(freshEndpoint(Transport::Ipc), 1);
    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket feed]", textThrownBy([&] { receive(1000); }));

    standIn.fail("zmq_recv", ETERM);
    EXPECT_EQ("Context terminated in recv() for socket [Socket feed]",
              textThrownBy<ZmqContextTerminationException>([&] { receive(1000); }));
}

TEST_F(ReceiveProtoBuf, OfTheGreatestSizeThatTakesMessagesParsesThem) {
    sendOfSize(10);
    try {
        receive(2147483647U);
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no 2 GB of address space";
    }

    EXPECT_EQ(8U, received.text().size());
}

TEST_P(ReceiveProtoBufHuge, RefusesEveryMessage) {
    sendText(feed.publisher, "");
    sendOfSize(10);
    const std::string actual = ", Actual: " + std::to_string(GetParam());
    try {
        EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 0" + actual,
                  textThrownBy([&] { receive(GetParam()); }));
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no 4 GB of address space";
    }

    EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 10" + actual, textThrownBy([&] { receive(1); }));
    EXPECT_THAT(standIn.journal().linesWith("zmq_recv"),
                ElementsAre("zmq_recv " + std::to_string(GetParam()) + " bytes, flags 0",
                            "zmq_recv " + std::to_string(GetParam()) + " bytes, flags 0"));
}

} // namespace rk::tests
