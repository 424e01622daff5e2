#include "support/Feed.h"
#include "support/NativeSocket.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <rk/socket/TimeoutException.h>

#include <zmq.h>

#include <climits>
#include <functional>
#include <new>

namespace rk::tests {

namespace {

constexpr auto noMessage = "Socket: Cannot receive on a NULL message";
constexpr auto wrongSize = "[Socket feed]: Wrong receive buffer size";
constexpr auto notParsed = "[Socket feed]: Failed deserializing message";

class SocketReceive : public testing::Test {
protected:
    SocketReceive() { standIn.journal().clear(); }

    /// Sends a message that takes `size` bytes when serialised. `size` is 2 to 129.
    void sendOfSize(std::size_t size) {
        Text message;
        message.set_text(std::string(size - 2, 'x'));
        sendText(feed.publisher, message.SerializeAsString());
    }

    void receive(unsigned int size) { feed.subscriber.receiveProtoBuf(&received, size); }
    std::string textOfReceive(unsigned int size) {
        return textThrownBy([&] { receive(size); });
    }

    StandIn standIn;
    Feed feed;
    Text received;
};

/// A size that does not fit into a signed integer.
class SocketReceiveHuge : public SocketReceive, public testing::WithParamInterface<unsigned int> {};

INSTANTIATE_TEST_SUITE_P(Of, SocketReceiveHuge, testing::Values(2147483648U, 4294967295U));

} // namespace

TEST_F(SocketReceive, ReturnsTheLengthWithoutABuffer) {
    sendText(feed.publisher, "0123456789");
    EXPECT_EQ(10, feed.subscriber.receive(nullptr, 0));
}

TEST_F(SocketReceive, PassesASizeOfMoreThan32Bits) {
    standIn.answer("zmq_recv", 7);
    EXPECT_EQ(7, feed.subscriber.receive(nullptr, ULONG_MAX));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv " + std::to_string(ULONG_MAX) + " bytes, flags 0"));
}

TEST_F(SocketReceive, ThrowsWhenTheTimeoutExpires) {
    feed.subscriber.connect(freshEndpoint(Transport::Ipc), 1);
    standIn.journal().clear();

    for (const auto& call : {std::function<void()>([&] { receiveText(feed.subscriber); }),
                             std::function<void()>([&] { feed.subscriber.receiveProtoBuf(received, 256); })}) {
        EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket feed]",
                  textThrownBy<TimeoutException>(call));
        EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
        standIn.journal().clear();
    }
}

TEST_F(SocketReceive, CountsTruncatedBytes) {
    feed.subscriber.activateStatistics(true);
    feed.subscriber.setTargetBitRate(1);
    for (int block = 1; block <= 50; ++block) {
        const std::size_t size = block < 50 ? 100 : 1048576 - 49 * 100;
        char buffer[4];
        standIn.setClock(block < 50 ? 100.0 : 101.0);
        sendText(feed.publisher, std::string(size, 'x'));
        EXPECT_EQ(static_cast<int>(size), feed.subscriber.receive(buffer, sizeof buffer));
    }
    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre("debug: [Socket feed]: Rate is 1.000000 Mbytes/s = 8.000000 Mbits/s, 50.000000 Blocks/s"));
    EXPECT_EQ(0U, standIn.journal().count("usleep"));
}

TEST_F(SocketReceive, ReadsNoClockWithoutStatistics) {
    feed.subscriber.setTargetBitRate(1);
    for (int block = 0; block < 100; ++block) {
        sendText(feed.publisher, "news");
        EXPECT_EQ("news", receiveText(feed.subscriber));
    }
    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
}

TEST_F(SocketReceive, ThrowsWithoutARequest) {
    Peer socket("cmd", Protocol::Req, freshEndpoint(Transport::Ipc));
    standIn.journal().clear();

    EXPECT_EQ("Receive error: Operation cannot be accomplished in current state on [Socket cmd]",
              textThrownBy([&] { receiveText(socket); }));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_recv 256 bytes, flags 0"));
}

TEST_F(SocketReceive, ThrowsOnAPublisher) {
    EXPECT_EQ("Receive error: Operation not supported on [Socket source]",
              textThrownBy([&] { receiveText(feed.publisher); }));
}

TEST_F(SocketReceive, ReplacesTheContentsOfTheMessage) {
    received.set_text("as it was");
    sendText(feed.publisher, "");
    receive(1);
    EXPECT_FALSE(received.has_text());
}

TEST_F(SocketReceive, RejectsNullBeforeSizeZero) {
    Socket closed("feed", ClosePolicy::DropPending);
    for (Socket* socket : {&feed.subscriber, &closed}) {
        for (const unsigned int size : {0U, 1U, 1000U}) {
            EXPECT_EQ(noMessage, textThrownBy([&] { socket->receiveProtoBuf(nullptr, size); }));
        }
        EXPECT_EQ(wrongSize, textThrownBy([&] { socket->receiveProtoBuf(&received, 0); }));
    }
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    sendOfSize(10);
    receive(1000);
    EXPECT_EQ(wrongSize, textOfReceive(0));
}

TEST_F(SocketReceive, KeepsTheBufferOfAClosedSocket) {
    feed.subscriber.close();
    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textOfReceive(777));
    feed.subscriber.createAndConnect(Protocol::Sub, feed.endpoint, patienceMs);
    feed.join();
    sendOfSize(10);
    receive(1);

    EXPECT_THAT(standIn.journal().linesWith("zmq_recv"), ElementsAre("zmq_recv 777 bytes, flags 0"));
}

TEST_F(SocketReceive, RefusesALongerMessage) {
    received.set_text("as it was");
    for (const unsigned int asked : {100U, 50U}) {
        sendOfSize(101);
        EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 101, Actual: 100", textOfReceive(asked));
        EXPECT_EQ("as it was", received.text());
    }
    sendOfSize(100);
    receive(1);
    EXPECT_EQ(98U, received.text().size());
}

TEST_F(SocketReceive, RejectsInvalidMessages) {
    Command command;
    for (const std::string bytes : {"", "\x08\x07", "\xff\xff\xff"}) {
        sendText(feed.publisher, bytes);
        EXPECT_EQ(notParsed, textThrownBy([&] { feed.subscriber.receiveProtoBuf(&command, 1000); }));
        EXPECT_EQ(bytes.size() == 2 ? 7 : 0, command.id());
    }
    sendOfSize(100);
    receive(1);
    EXPECT_EQ(98U, received.text().size());
    sendOfSize(10); // overwrites the start of the previous message in the buffer
    receive(1);
    EXPECT_EQ(8U, received.text().size());
}

TEST_F(SocketReceive, OwesAReplyToARejectedRequest) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer server("feed", Protocol::Rep, endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("\xff\xff\xff");
    EXPECT_EQ(notParsed, textThrownBy([&] { server.receiveProtoBuf(&received, 1000); }));

    sendText(server, "what was that?");
    EXPECT_EQ("what was that?", client.receive());
}

TEST_F(SocketReceive, ParsesWithABufferOfIntMax) {
    sendOfSize(10);
    try {
        receive(2147483647U);
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no 2 GB of address space";
    }
    EXPECT_EQ(8U, received.text().size());
}

TEST_P(SocketReceiveHuge, RefusesEveryMessage) {
    const std::string actual = ", Actual: " + std::to_string(GetParam());
    sendText(feed.publisher, "");
    sendOfSize(10);
    try {
        EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 0" + actual, textOfReceive(GetParam()));
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no 4 GB of address space";
    }
    EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 10" + actual, textOfReceive(1));
}

} // namespace rk::tests
