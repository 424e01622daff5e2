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

constexpr unsigned int patienceMs = 20000;
constexpr auto outOfTurn = "Send error: Operation cannot be accomplished in current state on [Socket server]";

class SendOverTransport : public testing::TestWithParam<Transport::Transport> {
protected:
    SendOverTransport() {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    }

    const socket::SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, SendOverTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& tested) { return Transport::ToString(tested.param); });

/// A reply socket that owes nobody a reply: 0MQ refuses whatever it sends.
class SendOutOfTurn : public testing::Test {
protected:
    SendOutOfTurn() {
        server.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Inproc), patienceMs);
        standIn.journal().clear();
    }

    StandIn standIn;
    Socket server{"server", ClosePolicy::DropPending};
};

static_assert(std::is_same_v<void, decltype(std::declval<Socket>().send(nullptr, 0UL))>);

} // namespace

TEST_P(SendOverTransport, TakesTheBytesToTheOtherSide) {
    const std::string bytes("zero \0 and high \xff bytes", 22);

    sendText(client, bytes);

    EXPECT_EQ(bytes, receiveText(server));
}

TEST_P(SendOverTransport, OfZeroBytesIsAnEmptyMessage) {
    client.send(nullptr, 0);

    EXPECT_EQ("", receiveText(server));
}

TEST_P(SendOverTransport, TakesAMessageOfManyBytes) {
    std::string bytes(3000000, 'x');
    std::string received(bytes.size() + 1, ' ');

    sendText(client, bytes);

    EXPECT_EQ(3000000, server.receive(received.data(), received.size()));
    received.resize(bytes.size());
    EXPECT_EQ(bytes, received);
}

TEST_P(SendOverTransport, AnswersARequestAndThenTheNext) {
    for (const std::string question : {"first", "second"}) {
        sendText(client, question);
        ASSERT_EQ(question, receiveText(server));
        sendText(server, "answer to " + question);
        ASSERT_EQ("answer to " + question, receiveText(client));
    }
}

TEST(Send, CopiesTheBytes) {
    Feed feed;
    std::string bytes = "before";

    feed.publisher.send(bytes.data(), bytes.size());
    bytes = "after ";

    EXPECT_EQ("before", receiveText(feed.subscriber));
}

TEST(Send, IsOneCallOfOnePartThatMayBlockAndNothingElse) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();

    sendText(feed.publisher, "news");

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4 bytes, flags 0"));
}

TEST(Send, HandsASizeOfMoreThan32BitsOn) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.answer("zmq_send", 0);

    feed.publisher.send(nullptr, 4294967303UL);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4294967303 bytes, flags 0"));
}

TEST(Send, OnASocketNeverCreatedThrows) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);

    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { sendText(socket, "news"); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST(Send, OnAClosedSocketThrowsAndLeavesThePeriodUntouched) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(Protocol::Pub);
    socket.activateStatistics(true);
    socket.setTargetBitRate(1);
    socket.close();
    standIn.journal().clear();

    for (int block = 0; block < 50; ++block) {
        EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { sendText(socket, "news"); }));
    }

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(SendOutOfTurn, OfAReplySocketThrowsWithoutAnyRepair) {
    EXPECT_EQ(outOfTurn, textThrownBy([&] { sendText(server, "answer"); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 6 bytes, flags 0"));
}

TEST_F(SendOutOfTurn, LeavesTheReplySocketInService) {
    Socket client("client", ClosePolicy::DropPending);
    const socket::SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    server.connect(endpoint, patienceMs);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);

    EXPECT_EQ(outOfTurn, textThrownBy([&] { sendText(server, "answer"); }));

    sendText(client, "question");
    EXPECT_EQ("question", receiveText(server));
    sendText(server, "answer");
    EXPECT_EQ("answer", receiveText(client));
}

TEST_F(SendOutOfTurn, IsCountedAllTheSameAndNeverPaused) {
    server.activateStatistics(true);
    server.setTargetBitRate(1);
    standIn.setClock(100.0);

    for (int block = 0; block < 49; ++block) {
        EXPECT_EQ(outOfTurn, textThrownBy([&] { sendText(server, "answer"); }));
    }
    EXPECT_EQ(0U, standIn.journal().count("debug: "));
    standIn.setClock(101.0);
    EXPECT_EQ(outOfTurn, textThrownBy([&] { sendText(server, std::string(1048576 - 49 * 6, 'x')); }));

    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre("debug: [Socket server]: Rate is 1.000000 Mbytes/s = 8.000000 Mbits/s, "
                            "50.000000 Blocks/s"));
    EXPECT_EQ(2U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, standIn.journal().count("usleep"));
}

TEST(Send, OnASubscribeSocketThrowsThatItIsNotSupported) {
    Feed feed;

    EXPECT_EQ("Send error: Operation not supported on [Socket feed]",
              textThrownBy([&] { sendText(feed.subscriber, "news"); }));
}

TEST(Send, RefusedOutOfTurnOnAPublishSocketThrowsWithoutAnyRepair) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.fail("zmq_send", EFSM);

    EXPECT_EQ("Send error: Operation cannot be accomplished in current state on [Socket source]",
              textThrownBy([&] { sendText(feed.publisher, "news"); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4 bytes, flags 0"));
}

TEST(Send, InterruptedByASignalThrowsAndIsNotRepeated) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(Protocol::Req);
    std::string text;
    standIn.journal().clear();

    interrupt([&] { text = textThrownBy([&] { sendText(socket, "nobody takes it"); }); });

    EXPECT_EQ("Send error: Interrupted system call on [Socket cmd]", text);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 15 bytes, flags 0"));
}

TEST(Send, ThatWouldHaveToWaitThrowsAndIsNotRepeated) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.fail("zmq_send", EAGAIN);

    EXPECT_EQ("Send error: Resource temporarily unavailable on [Socket source]",
              textThrownBy([&] { sendText(feed.publisher, "news"); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4 bytes, flags 0"));
}

TEST(Send, ThatFailsLeavesTheSocketUsable) {
    StandIn standIn;
    Feed feed;
    standIn.fail("zmq_send", EAGAIN);
    textThrownBy([&] { sendText(feed.publisher, "lost"); });

    sendText(feed.publisher, "news");

    EXPECT_EQ("news", receiveText(feed.subscriber));
}

TEST(Send, InATerminatedContextThrowsThat) {
    StandIn standIn;
    Feed feed;
    standIn.journal().clear();
    standIn.fail("zmq_send", ETERM);

    EXPECT_EQ("Context terminated in send() for socket [Socket source]",
              textThrownBy<ZmqContextTerminationException>([&] { sendText(feed.publisher, "news"); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4 bytes, flags 0"));
}

} // namespace rk::tests
