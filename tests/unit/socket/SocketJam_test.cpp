#include "support/Calls.h"
#include "support/Test.h"

#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <ostream>

// Failures during the repair of a jammed socket. Repairs_test.cpp tests repairs that succeed.

namespace rk::tests {

namespace {

using calls::operator+;

struct Side {
    Protocol::Protocol pattern;
    const char* function;
    const char* line;
    const char* errorText;
    const char* operation;
    const char* typeText; ///< in the message of a rebuild that gets no native socket
    void (*call)(Socket&);
};

void PrintTo(const Side& side, std::ostream* out) {
    *out << side.operation;
}

const Side sending{
    Protocol::Req, "zmq_send", "zmq_send 5 bytes, flags 0", "Send error: ", "send()", "4", [](Socket& socket) {
        sendText(socket, "again");
    }};
const Side receiving{
    Protocol::Rep, "zmq_recv", "zmq_recv 256 bytes, flags 0", "Receive error: ", "recv()", "3", [](Socket& socket) {
        receiveText(socket);
    }};

/// A jammed request or reply socket.
class SocketJam : public testing::TestWithParam<Side> {
protected:
    SocketJam() {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        sendText(client, "first");
        EXPECT_EQ("first", receiveText(server));
        standIn.journal().clear();
    }

    void call() { GetParam().call(jammed); }
    std::string textOfCall() {
        return textThrownBy([&] { call(); });
    }
    std::string textOf(const std::string& reason) const { return GetParam().errorText + reason + " on [Socket x]"; }

    /// Expects the socket to be open: its next call reaches ZeroMQ.
    void expectServing() {
        standIn.fail(GetParam().function, EHOSTUNREACH);
        EXPECT_EQ(textOf("Host unreachable"), textOfCall());
    }

    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    Socket server{"x", ClosePolicy::DropPending};
    Socket client{"x", ClosePolicy::DropPending};
    Socket& jammed = GetParam().pattern == Protocol::Req ? client : server;
    const std::string warning = calls::repairWarning("x");
};

INSTANTIATE_TEST_SUITE_P(Of, SocketJam, testing::Values(sending, receiving),
                         [](const auto& tested) { return Protocol::ToString(tested.param.pattern); });

} // namespace

TEST_P(SocketJam, IsRepairedOncePerCall) {
    standIn.fail(GetParam().function, EFSM, 1, 2);

    EXPECT_EQ(textOf("Operation cannot be accomplished in current state"), textOfCall());
    EXPECT_EQ(2U, standIn.journal().count(GetParam().line));
    EXPECT_EQ(1U, standIn.journal().count(warning));
    EXPECT_EQ(1U, standIn.journal().count("zmq_socket"));
}

TEST_P(SocketJam, ThrowsTheErrorOfTheSecondAttempt) {
    standIn.fail(GetParam().function, EHOSTUNREACH, 2);
    EXPECT_EQ(textOf("Host unreachable"), textOfCall());
    expectServing();

    standIn.fail(GetParam().function, EFSM);
    standIn.after("warning", [&] { standIn.fail(GetParam().function, ETERM); });
    EXPECT_EQ("Context terminated in " + std::string(GetParam().operation) + " for socket [Socket x]",
              textThrownBy<ZmqContextTerminationException>([&] { call(); }));
    expectServing();
}

TEST_P(SocketJam, IsNotRepairedAfterAnotherError) {
    standIn.fail(GetParam().function, EINTR);

    EXPECT_EQ(textOf("Interrupted system call"), textOfCall());
    EXPECT_THAT(standIn.journal().lines(), ElementsAre(GetParam().line));
}

TEST_P(SocketJam, ThrowsWhenItCannotBeRebuilt) {
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_EQ(textOf("Socket operation on non-socket"), textOfCall());
    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre(GetParam().line, warning, "zmq_close", calls::open(GetParam().pattern),
                            std::string("error: [Socket x]: Error resetting socket: Socket: Failed creating socket "
                                        "[Socket x] of type ") +
                                GetParam().typeText + ": Too many open files on [Socket x]",
                            GetParam().line));
    EXPECT_THAT(textOfCall(), EndsWith(" on a NULL socket"));
}

TEST_P(SocketJam, CountsARetriedCallOnce) {
    jammed.activateStatistics(true);
    standIn.setClock(100.0);
    for (std::size_t block = 1; block <= 100; ++block) {
        standIn.fail(GetParam().function, EFSM);
        standIn.after("warning", [&] { standIn.answer(GetParam().function, 5); });
        call();
        EXPECT_EQ(block / 50, standIn.journal().count("debug: [Socket x]: Rate is ")) << block;
    }
    EXPECT_EQ(200U, standIn.journal().count(GetParam().function));
}

TEST_P(SocketJam, CapsTheRateAfterTheRepair) {
    client.setTargetBitRate(8);
    standIn.setClock(100.0);
    sendText(client, std::string(1048576, 'x'));
    EXPECT_THAT(standIn.journal().linesWith("usleep"), IsEmpty());
    sendText(client, std::string(1048576, 'x'));

    EXPECT_THAT(standIn.journal().linesWith("usleep"), ElementsAre("usleep 1000000"));
}

TEST_P(SocketJam, AbandonsTheRequestWithoutAReply) {
    server.connect(freshEndpoint(Transport::Inproc), 1);

    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket x]",
              textThrownBy<TimeoutException>([&] { receiveText(server); }));
    std::string error;
    EXPECT_EQ(PollResult::Timeout, client.poll(0, error));
}

} // namespace rk::tests
