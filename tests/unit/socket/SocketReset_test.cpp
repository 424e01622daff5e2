#include "support/Calls.h"
#include "support/Closed.h"
#include "support/Endpoints.h"
#include "support/Patterns.h"
#include "support/StandIn.h"
#include "support/TerminateHandler.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <exception>
#include <new>
#include <ostream>
#include <string>
#include <type_traits>

// Rebuilds that fail, and peers of rebuilt sockets. Repairs_test.cpp shows the calls of a rebuild.

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(std::is_same_v<decltype(&Socket::resetConnections), void (Socket::*)() noexcept>);

const SocketEndpoint first(Transport::Ipc, "/nonexistent/first", 0);
const SocketEndpoint second(Transport::Ipc, "/nonexistent/second", 0);

/// A step that fails, and the reason that the reset then logs.
struct FailingStep {
    std::string function;
    int nth;
    std::string reason;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.function << " " << step.nth;
}

class SocketReset : public testing::TestWithParam<FailingStep> {
protected:
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

const std::string attachReason = "Socket: Failed connecting/binding socket: Too many open files";

INSTANTIATE_TEST_SUITE_P(
    WithAFailing, SocketReset,
    testing::Values(FailingStep{"zmq_socket", 1,
                                "Socket: Failed creating socket [Socket cmd] of type 2: Too many open files"},
                    FailingStep{"zmq_connect", 1, attachReason}, FailingStep{"zmq_connect", 2, attachReason},
                    FailingStep{"zmq_setsockopt " + std::to_string(ZMQ_RCVTIMEO), 1,
                                "Socket: Error setting ZMQ_RCVTIMEO Too many open files"},
                    FailingStep{"zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE), 2,
                                "Socket: Error setting ZMQ_SUBSCRIBE Too many open files"}));

class SocketResetOver : public testing::TestWithParam<Transport::Transport> {
protected:
    SocketResetOver() {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        sendText(client, "lost");
        EXPECT_EQ("lost", receiveText(server));
    }

    void expectServed() {
        sendText(client, "question");
        EXPECT_EQ("question", receiveText(server));
        sendText(server, "answer");
        EXPECT_EQ("answer", receiveText(client));
    }

    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(On, SocketResetOver, everyTransport(), nameOfTransport);

void resetWhileALogLineThrowsANumber() {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, first, 0);
    standIn.after("debug", [] { throw 1; });
    socket.resetConnections();
}

} // namespace

TEST_P(SocketReset, LogsTheReasonAndClosesTheSocket) {
    socket.createAndConnect(Protocol::Sub, first, 100);
    socket.connect(second, 100);
    standIn.journal().clear();
    standIn.fail(GetParam().function, EMFILE, GetParam().nth);
    standIn.after("zmq_close", [] { errno = ENOTSOCK; });

    socket.resetConnections();

    EXPECT_EQ("error: [Socket cmd]: Error resetting socket: " + GetParam().reason + " on [Socket cmd]",
              standIn.journal().lines().back());
    EXPECT_EQ(GetParam().nth == 2 ? 1U : 0U, standIn.journal().count("zmq_connect ipc:///nonexistent/second"));
    EXPECT_EQ(1U, standIn.journal().count("error: "));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    expectClosed(standIn, socket);
}

TEST(SocketResetAlone, IgnoresAFailingClose) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, first, 0);
    standIn.journal().clear();
    standIn.fail("zmq_close", ENOTSOCK);
    socket.resetConnections();

    EXPECT_EQ("debug: Connected [Socket cmd]", standIn.journal().lines().back());
}

TEST(SocketResetAlone, LogsAnExceptionOfAnotherType) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, first, 0);
    standIn.after("debug", [] { throw std::bad_alloc(); });
    socket.resetConnections();

    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket cmd]: Error resetting socket: std::bad_alloc"));
    standIn.after("debug", {});
    expectClosed(standIn, socket);
}

TEST(SocketResetDeathTest, EndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::set_terminate(exitWithSeven);
            resetWhileALogLineThrowsANumber();
        },
        testing::ExitedWithCode(7), "");
}

TEST_P(SocketResetOver, LetsARequesterAskAgain) {
    client.resetConnections();
    sendText(client, "question");
    sendText(server, "nobody awaits this");
    EXPECT_EQ("question", receiveText(server));
    sendText(server, "answer");
    EXPECT_EQ("answer", receiveText(client));
}

TEST_P(SocketResetOver, LetsAReplierServeNewClients) {
    client.close();
    server.resetConnections();
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    expectServed();
}

} // namespace rk::tests
