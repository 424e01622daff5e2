#include "support/Errors.h"
#include "support/FakeMessage.h"
#include "support/Feed.h"
#include "support/StandIn.h"
#include "support/Texts.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <climits>
#include <exception>
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

Command commandWith(const std::string& payload) {
    Command command;
    command.set_id(7);
    command.mutable_header()->set_time(1.5);
    command.set_payload(payload);
    return command;
}

class SendProtoBuf : public testing::Test {
protected:
    SendProtoBuf() { standIn.journal().clear(); }

    StandIn standIn;
    Feed feed;
    Socket closed{"commands", ClosePolicy::DropPending};
};

static_assert(std::is_same_v<void, decltype(std::declval<Socket>().sendProtoBuf(nullptr))>);

} // namespace

TEST_F(SendProtoBuf, SendsTheSerializedBytesInOneCall) {
    Command command = commandWith("payload");
    const std::string bytes = command.SerializeAsString();

    feed.publisher.sendProtoBuf(&command);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send " + std::to_string(bytes.size()) + " bytes, flags 0"));
    EXPECT_EQ(bytes, receiveText(feed.subscriber));
}

TEST_F(SendProtoBuf, LeavesTheMessageAsItWas) {
    Command command = commandWith("payload");

    feed.publisher.sendProtoBuf(&command);

    EXPECT_EQ(commandWith("payload").SerializeAsString(), command.SerializeAsString());
}

TEST_F(SendProtoBuf, OfAMessageWithoutContentSendsAnEmptyMessage) {
    Text text;

    feed.publisher.sendProtoBuf(&text);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 0 bytes, flags 0"));
    EXPECT_EQ("", receiveText(feed.subscriber));
}

TEST_F(SendProtoBuf, MeasuresAndSerializesOnce) {
    FakeMessage message(5, 5);

    feed.publisher.sendProtoBuf(&message);

    EXPECT_EQ(1, message.measured);
    EXPECT_EQ(1, message.serialized);
    EXPECT_EQ("xxxxx", receiveText(feed.subscriber));
}

TEST_F(SendProtoBuf, OfNoMessageThrows) {
    EXPECT_EQ("Socket: Cannot send NULL message", textThrownBy([&] { feed.publisher.sendProtoBuf(nullptr); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, OfNoMessageIsReportedBeforeTheClosedSocket) {
    EXPECT_EQ("Socket: Cannot send NULL message", textThrownBy([&] { closed.sendProtoBuf(nullptr); }));
}

TEST_F(SendProtoBuf, NamesEveryMissingFieldInProtobufsOrder) {
    Command command;
    EXPECT_EQ("[Socket source]: Cannot send message: not initialized: [id][header]",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&command); }));

    command.mutable_header();
    EXPECT_EQ("[Socket source]: Cannot send message: not initialized: [id][header.time]",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&command); }));

    command.set_id(7);
    EXPECT_EQ("[Socket source]: Cannot send message: not initialized: [header.time]",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&command); }));
}

TEST_F(SendProtoBuf, OfAnIncompleteMessageSendsLogsAndCountsNothing) {
    Command command;
    feed.publisher.activateStatistics(true);

    for (int block = 0; block < 50; ++block) {
        textThrownBy([&] { feed.publisher.sendProtoBuf(&command); });
    }

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, NamesTheMissingFieldsThoughTheSocketIsClosed) {
    Command command;
    command.mutable_header();

    EXPECT_EQ("[Socket commands]: Cannot send message: not initialized: [id][header.time]",
              textThrownBy([&] { closed.sendProtoBuf(&command); }));
}

TEST_F(SendProtoBuf, ReportsTheClosedSocketOnceTheMessageIsSerialized) {
    FakeMessage message(5, 5);

    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { closed.sendProtoBuf(&message); }));

    EXPECT_EQ(1, message.serialized);
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, RefusesAMessageLongerThanProtobufCanSerialize) {
    FakeMessage message(2147483648U, 0);

    EXPECT_EQ("[Socket source]: Cannot send message: 2147483648 bytes serialized, at most 2147483647 possible",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&message); }));

    EXPECT_EQ(0, message.serialized);
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, RefusesALengthOfMoreThan32BitsUnshortened) {
    FakeMessage message(4294967303U, 7);

    EXPECT_EQ("[Socket source]: Cannot send message: 4294967303 bytes serialized, at most 2147483647 possible",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&message); }));

    EXPECT_EQ(0, message.serialized);
}

TEST_F(SendProtoBuf, SerializesAMessageOfTheGreatestLength) {
    FakeMessage message(INT_MAX, 7);
    try {
        feed.publisher.sendProtoBuf(&message);
        ADD_FAILURE() << "seven bytes were sent as two billion";
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no 2 GB of address space";
    } catch (const std::exception&) {
        // Only the serialisation itself can have found out.
        EXPECT_EQ(1, message.serialized);
    }
}

/// Where protobuf is built to check for it, it throws before the library can.
TEST_F(SendProtoBuf, RefusesAMessageThatIsShorterThanItMeasured) {
    FakeMessage message(10, 9);

    EXPECT_THAT(
        [&] { feed.publisher.sendProtoBuf(&message); },
        testing::Throws<std::exception>(testing::Property(
            &std::exception::what,
            testing::AnyOf(testing::StrEq("[Socket source]: Cannot send message: changed while being serialized"),
                           testing::HasSubstr("CHECK failed: target + size == res")))));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, RefusesAMessageThatIsMeasuredAnewMeanwhile) {
    FakeMessage message(10, 9, 9);

    EXPECT_EQ("[Socket source]: Cannot send message: changed while being serialized",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&message); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendProtoBuf, PassesOnWhatSendThrows) {
    Text text;
    standIn.fail("zmq_send", EHOSTUNREACH);
    EXPECT_EQ("Send error: Host unreachable on [Socket source]",
              textThrownBy([&] { feed.publisher.sendProtoBuf(&text); }));

    standIn.fail("zmq_send", ETERM);
    EXPECT_EQ("Context terminated in send() for socket [Socket source]",
              textThrownBy<ZmqContextTerminationException>([&] { feed.publisher.sendProtoBuf(&text); }));
}

TEST_F(SendProtoBuf, OnAJammedRequestSocketSendsTheMessageAfterTheRepair) {
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    Socket client("cmd", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, 20000);
    client.createAndConnect(Protocol::Req, endpoint, 20000);
    Command first = commandWith("first");
    Command second = commandWith("second");
    Command received;
    client.sendProtoBuf(&first);
    server.receiveProtoBuf(&received, 1000);
    EXPECT_EQ("first", received.payload());

    client.sendProtoBuf(&second);

    sendText(server, "answer to the first, which nobody awaits");
    server.receiveProtoBuf(&received, 1000);
    EXPECT_EQ("second", received.payload());
    EXPECT_EQ(1U, standIn.journal().count("warning: "));
}

TEST_F(SendProtoBuf, IsCountedWithItsSerializedSize) {
    FakeMessage message(1048576, 1048576);
    feed.publisher.activateStatistics(true);
    standIn.setClock(100.0);
    for (int block = 1; block < 50; ++block) {
        feed.publisher.sendProtoBuf(&message);
    }
    standIn.setClock(101.0);
    feed.publisher.sendProtoBuf(&message);

    EXPECT_THAT(
        standIn.journal().linesWith("debug: "),
        ElementsAre("debug: [Socket source]: Rate is 50.000000 Mbytes/s = 400.000000 Mbits/s, 50.000000 Blocks/s"));
}

TEST_F(SendProtoBuf, IsCappedByItsSerializedSize) {
    FakeMessage message(1048576, 1048576);
    feed.publisher.setTargetBitRate(8);
    standIn.setClock(100.0);

    feed.publisher.sendProtoBuf(&message);
    feed.publisher.sendProtoBuf(&message);

    EXPECT_THAT(standIn.journal().linesWith("usleep"), ElementsAre("usleep 1000000"));
}

} // namespace rk::tests
