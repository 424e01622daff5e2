#include "support/Closed.h"
#include "support/Endpoints.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(std::is_same_v<decltype(&Socket::resetConnections), void (Socket::*)() noexcept>);

constexpr unsigned int patienceMs = 20000;

const SocketEndpoint first(Transport::Ipc, "/nonexistent/first", 0);
const SocketEndpoint second(Transport::Ipc, "/nonexistent/second", 0);
const SocketEndpoint third(Transport::Ipc, "/nonexistent/third", 0);

/// What a reset of a request socket connected to the three endpoints with the timeouts 100, 0 and 300 does.
const std::vector<std::string> journalOfThree = {"zmq_close",
                                                 "zmq_socket 3",
                                                 "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/first",
                                                 "zmq_connect ipc:///nonexistent/first",
                                                 "zmq_setsockopt 27 = 100 (4 bytes)",
                                                 "zmq_setsockopt 17 = 2000 (4 bytes)",
                                                 "debug: Connected [Socket cmd]",
                                                 "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/second",
                                                 "zmq_connect ipc:///nonexistent/second",
                                                 "zmq_setsockopt 17 = 2000 (4 bytes)",
                                                 "debug: Connected [Socket cmd]",
                                                 "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/third",
                                                 "zmq_connect ipc:///nonexistent/third",
                                                 "zmq_setsockopt 27 = 300 (4 bytes)",
                                                 "zmq_setsockopt 17 = 2000 (4 bytes)",
                                                 "debug: Connected [Socket cmd]"};

class ResetConnections : public testing::Test {
protected:
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};

    std::vector<std::string> reset() {
        standIn.journal().clear();
        socket.resetConnections();
        return standIn.journal().lines();
    }
};

class ResetOfThreeConnections : public ResetConnections {
protected:
    ResetOfThreeConnections() {
        socket.create(Protocol::Req);
        socket.connect(first, 100);
        socket.connect(second, 0);
        socket.connect(third, 300);
    }
};

/// A step of a connect that fails, and the reason that the reset then logs.
struct FailingStep {
    std::string function;
    std::string reason;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.function;
}

class ResetOfASubscriber : public testing::TestWithParam<FailingStep> {};

INSTANTIATE_TEST_SUITE_P(
    WithAFailing, ResetOfASubscriber,
    testing::Values(FailingStep{"zmq_socket",
                                "Socket: Failed creating socket [Socket cmd] of type 2: Too many open files"},
                    FailingStep{"zmq_connect", "Socket: Failed connecting/binding socket: Too many open files"},
                    FailingStep{"zmq_setsockopt 27", "Socket: Error setting ZMQ_RCVTIMEO Too many open files"},
                    FailingStep{"zmq_setsockopt 6", "Socket: Error setting ZMQ_SUBSCRIBE Too many open files"}));

class ResetOnTransport : public testing::TestWithParam<Transport::Transport> {
protected:
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};

    void open(Protocol::Protocol serverPattern, Protocol::Protocol clientPattern) {
        server.createAndConnect(serverPattern, endpoint, patienceMs);
        client.createAndConnect(clientPattern, endpoint, patienceMs);
    }
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, ResetOnTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& instance) { return Transport::ToString(instance.param); });

void sendByte(Socket& socket, char byte) {
    socket.send(&byte, 1);
}

char receiveByte(Socket& socket) {
    char byte = 0;
    socket.receive(&byte, 1);
    return byte;
}

void resetWhileALogLineThrowsANumber() {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, first, 0);
    standIn.after("debug", [] { throw 1; });
    socket.resetConnections();
}

} // namespace

TEST_F(ResetConnections, OfAClosedSocketDoesNothing) {
    EXPECT_THAT(reset(), ElementsAre());

    socket.createAndConnect(Protocol::Req, first, 0);
    socket.close();

    EXPECT_THAT(reset(), ElementsAre());
}

TEST_F(ResetConnections, OfAnUnconnectedSocketReplacesTheZmqHandle) {
    for (const auto& [protocol, line] : {std::pair(Protocol::Pub, "zmq_socket 1"),
                                         {Protocol::Sub, "zmq_socket 2"},
                                         {Protocol::Rep, "zmq_socket 4"},
                                         {Protocol::Req, "zmq_socket 3"}}) {
        socket.create(protocol);
        EXPECT_THAT(reset(), ElementsAre("zmq_close", line));
    }
}

TEST_F(ResetOfThreeConnections, ConnectsEachAgainInOrderWithItsTimeout) {
    EXPECT_EQ(journalOfThree, reset());
}

TEST_F(ResetOfThreeConnections, NeverMakesTheListGrow) {
    reset();
    reset();

    EXPECT_EQ(journalOfThree, reset());
}

TEST_F(ResetOfThreeConnections, LeavesThemConnected) {
    reset();
    standIn.journal().clear();

    socket.connect(first, 7);
    socket.connect(second, 7);
    socket.connect(third, 7);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST_F(ResetOfThreeConnections, IgnoresAFailingClose) {
    standIn.fail("zmq_close", ENOTSOCK);

    EXPECT_EQ(journalOfThree, reset());
    EXPECT_EQ(journalOfThree, reset());
}

TEST_F(ResetOfThreeConnections, StopsAtTheSecondIfItFails) {
    standIn.fail("zmq_connect", EHOSTUNREACH, 2);

    EXPECT_THAT(reset(), ElementsAre("zmq_close", "zmq_socket 3",
                                     "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/first",
                                     "zmq_connect ipc:///nonexistent/first", "zmq_setsockopt 27 = 100 (4 bytes)",
                                     "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]",
                                     "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/second",
                                     "zmq_connect ipc:///nonexistent/second", "zmq_close",
                                     "error: [Socket cmd]: Error resetting socket: Socket: Failed connecting/binding "
                                     "socket: Host unreachable on [Socket cmd]"));
    expectClosed(standIn, socket);
}

TEST_F(ResetOfThreeConnections, ConnectsNoneWithoutANewZmqHandle) {
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_THAT(reset(), ElementsAre("zmq_close", "zmq_socket 3",
                                     "error: [Socket cmd]: Error resetting socket: Socket: Failed creating socket "
                                     "[Socket cmd] of type 4: Too many open files on [Socket cmd]"));
    expectClosed(standIn, socket);
}

TEST_F(ResetOfThreeConnections, ReportsTheErrorThatHappenedAndNotThatOfTheClose) {
    standIn.fail("zmq_connect", EHOSTUNREACH, 2);
    standIn.fail("zmq_close", ENOTSOCK, 1, 2);

    reset();

    EXPECT_THAT(
        standIn.journal().linesWith("error: "),
        ElementsAre("error: [Socket cmd]: Error resetting socket: Socket: Failed connecting/binding socket: Host "
                    "unreachable on [Socket cmd]"));
}

TEST_F(ResetOfThreeConnections, LogsAnExceptionOfAnotherType) {
    standIn.after("debug", [] { throw std::bad_alloc(); });

    EXPECT_THAT(reset(), ElementsAre("zmq_close", "zmq_socket 3",
                                     "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/first", "zmq_close",
                                     "error: [Socket cmd]: Error resetting socket: std::bad_alloc"));
    standIn.after("debug", {});
    expectClosed(standIn, socket);
}

TEST(ResetConnectionsDeathTest, EndsTheProcessOnWhatIsNoException) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_EXIT(resetWhileALogLineThrowsANumber(), testing::KilledBySignal(SIGABRT), "");
}

TEST_P(ResetOfASubscriber, LogsTheReasonAndLeavesTheSocketClosed) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Sub, first, 100);
    socket.connect(second, 100);
    standIn.journal().clear();
    standIn.fail(GetParam().function, EMFILE);
    standIn.after("zmq_close", [] { errno = ENOTSOCK; });

    socket.resetConnections();

    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket cmd]: Error resetting socket: " + GetParam().reason + " on [Socket cmd]"));
    EXPECT_EQ(0U, standIn.journal().count("zmq_connect ipc:///nonexistent/second"));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    expectClosed(standIn, socket);
}

TEST_F(ResetConnections, OfASubscriberSubscribesAgain) {
    socket.createAndConnect(Protocol::Sub, first, 100);

    EXPECT_THAT(reset(), ElementsAre("zmq_close", "zmq_socket 2",
                                     "debug: Connecting [Socket cmd], subscribing to ipc:///nonexistent/first",
                                     "zmq_connect ipc:///nonexistent/first", "zmq_setsockopt 27 = 100 (4 bytes)",
                                     "zmq_setsockopt 6 = none (0 bytes)", "zmq_setsockopt 17 = 0 (4 bytes)",
                                     "debug: Connected [Socket cmd]"));
}

TEST_F(ResetConnections, OfABoundIpcSocketOpensItsFileAgain) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    socket.createAndConnect(Protocol::Rep, endpoint, 0);

    EXPECT_THAT(reset(), ElementsAre("zmq_close", "zmq_socket 4",
                                     "debug: Connecting [Socket cmd], listening on ipc://" + endpoint.address,
                                     "zmq_bind ipc://" + endpoint.address, "chmod " + endpoint.address + " 777",
                                     "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
}

TEST_F(ResetConnections, KeepsTheStatisticsAndTheBitRate) {
    standIn.setClock(1000.0);
    std::vector<char> megabit(131072);
    socket.create(Protocol::Pub);
    socket.setTargetBitRate(1);
    socket.activateStatistics(true);
    socket.send(megabit.data(), megabit.size());
    for (int number = 1; number < 49; ++number) {
        socket.addBlockToStatistics(1);
    }
    reset();

    socket.send(megabit.data(), megabit.size());

    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
    EXPECT_THAT(standIn.journal().linesWith("usleep"), ElementsAre("usleep 1000000"));
}

TEST_P(ResetOnTransport, LetsARequesterAskAgainThatHadNoReply) {
    open(Protocol::Rep, Protocol::Req);
    sendByte(client, 'x');
    ASSERT_EQ('x', receiveByte(server));

    client.resetConnections();
    sendByte(client, 'y');
    sendByte(server, 'X');

    ASSERT_EQ('y', receiveByte(server));
    sendByte(server, 'Y');
    EXPECT_EQ('Y', receiveByte(client));
}

TEST_P(ResetOnTransport, LetsAReplierServeNewClients) {
    open(Protocol::Rep, Protocol::Req);
    sendByte(client, 'x');
    ASSERT_EQ('x', receiveByte(server));

    client.close();
    server.resetConnections();
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    sendByte(client, 'y');

    ASSERT_EQ('y', receiveByte(server));
    sendByte(server, 'Y');
    EXPECT_EQ('Y', receiveByte(client));
}

} // namespace rk::tests
