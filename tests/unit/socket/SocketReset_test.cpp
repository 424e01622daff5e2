#include "support/TerminateHandler.h"
#include "support/Test.h"

#include <zmq.h>

#include <cerrno>
#include <exception>
#include <new>
#include <ostream>
#include <type_traits>

// Rebuilds that fail, and peers of rebuilt sockets. Repairs_test.cpp tests the calls of a rebuild.

namespace rk::tests {

namespace {

static_assert(std::is_same_v<decltype(&Socket::resetConnections), void (Socket::*)() noexcept>);

const SocketEndpoint firstPath(Transport::Ipc, "/nonexistent/first", 0);
const SocketEndpoint secondPath(Transport::Ipc, "/nonexistent/second", 0);

/// A step that fails, and the reason that the reset logs.
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

void resetWhileALogLineThrowsANumber() {
    StandIn standIn;
    Peer socket("cmd", Protocol::Req, firstPath, ClosePolicy::DropPending, 0);
    standIn.after("debug", [] { throw 1; });
    socket.resetConnections();
}

} // namespace

TEST_P(SocketReset, LogsTheReasonAndClosesTheSocket) {
    socket.createAndConnect(Protocol::Sub, firstPath, 100);
    socket.connect(secondPath, 100);
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

TEST(SocketResetAlone, LogsAnExceptionOfAnotherType) {
    StandIn standIn;
    Peer socket("cmd", Protocol::Req, firstPath, ClosePolicy::DropPending, 0);
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

} // namespace rk::tests
