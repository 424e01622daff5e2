#include "support/Closed.h"
#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

const SocketEndpoint nobody(Transport::Ipc, "/nonexistent/nobody", 0);

/// A call of 0MQ that fails while a socket of the pattern is connected, and what the thrown text says of it.
struct FailingCall {
    std::string function;
    Protocol::Protocol protocol;
    std::string text;
};

void PrintTo(const FailingCall& call, std::ostream* out) {
    *out << call.function << " of " << Protocol::ToString(call.protocol);
}

/// Connects a socket, which has one endpoint already, to a second one, in vain.
class FailedConnect : public testing::TestWithParam<FailingCall> {
protected:
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};

    FailedConnect() {
        socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 0);
        standIn.journal().clear();
    }

    std::string failWith(int error) {
        standIn.fail(GetParam().function, error);
        return textThrownBy<std::runtime_error>([&] { socket.connect(freshEndpoint(Transport::Ipc), 100); });
    }
};

const char* const attachText = "Socket: Failed connecting/binding socket: ";
const char* const timeoutText = "Socket: Error setting ZMQ_RCVTIMEO ";
const char* const subscribeText = "Socket: Error setting ZMQ_SUBSCRIBE ";

INSTANTIATE_TEST_SUITE_P(In, FailedConnect,
                         testing::Values(FailingCall{"zmq_bind", Protocol::Pub, attachText},
                                         FailingCall{"zmq_bind", Protocol::Rep, attachText},
                                         FailingCall{"zmq_connect", Protocol::Sub, attachText},
                                         FailingCall{"zmq_connect", Protocol::Req, attachText},
                                         FailingCall{"zmq_setsockopt 27", Protocol::Pub, timeoutText},
                                         FailingCall{"zmq_setsockopt 27", Protocol::Sub, timeoutText},
                                         FailingCall{"zmq_setsockopt 27", Protocol::Rep, timeoutText},
                                         FailingCall{"zmq_setsockopt 27", Protocol::Req, timeoutText},
                                         FailingCall{"zmq_setsockopt 6", Protocol::Sub, subscribeText}));

/// An endpoint that 0MQ itself refuses.
struct BadEndpoint {
    Protocol::Protocol protocol;
    SocketEndpoint endpoint;
    std::string address;
    std::string reason;
};

void PrintTo(const BadEndpoint& bad, std::ostream* out) {
    *out << bad.address << " for " << Protocol::ToString(bad.protocol);
}

class RefusedEndpoint : public testing::TestWithParam<BadEndpoint> {};

INSTANTIATE_TEST_SUITE_P(
    By0Mq, RefusedEndpoint,
    testing::Values(BadEndpoint{Protocol::Pub, {}, "Invalid 0", "Invalid argument"},
                    BadEndpoint{Protocol::Req, {}, "Invalid 0", "Invalid argument"},
                    BadEndpoint{Protocol::Sub, {Transport::Tcp, "no host", 1}, "tcp://no host:1", "Invalid argument"},
                    BadEndpoint{Protocol::Rep,
                                {Transport::Ipc, "/nonexistent/folder/s", 0},
                                "ipc:///nonexistent/folder/s",
                                "No such file or directory"},
                    BadEndpoint{Protocol::Req,
                                {Transport::Ipc, std::string(200, 'x'), 0},
                                "ipc://" + std::string(200, 'x'),
                                "File name too long"}));

class FailureDuringConnect : public testing::Test {
protected:
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};
};

} // namespace

TEST_P(FailedConnect, ThrowsTheErrorOf0Mq) {
    EXPECT_EQ(GetParam().text + "Cannot allocate memory on [Socket cmd]", failWith(ENOMEM));
}

TEST_P(FailedConnect, ThrowsAnErrorThat0MqAloneKnows) {
    EXPECT_EQ(GetParam().text + "The protocol is not compatible with the socket type on [Socket cmd]",
              failWith(ENOCOMPATPROTO));
}

TEST_P(FailedConnect, ThrowsAPlainRuntimeErrorAlsoWhenTheContextIsTerminated) {
    EXPECT_EQ(GetParam().text + "Context was terminated on [Socket cmd]", failWith(ETERM));
}

TEST_P(FailedConnect, ThrowsTheErrorThatHappenedAndNotThatOfTheClose) {
    standIn.fail("zmq_close", ENOTSOCK);

    EXPECT_EQ(GetParam().text + "Cannot allocate memory on [Socket cmd]", failWith(ENOMEM));
}

TEST_P(FailedConnect, ClosesTheSocketAndForgetsEveryEndpoint) {
    failWith(ENOMEM);

    EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
    expectClosed(standIn, socket);
}

TEST_P(FailedConnect, LogsNothingButTheLineInFront) {
    failWith(ENOMEM);

    EXPECT_EQ(1U, standIn.journal().count("debug: Connecting "));
    EXPECT_EQ(1U, standIn.journal().count("debug: "));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_P(FailedConnect, LeavesASocketThatCanBeCreatedAndConnected) {
    failWith(ENOMEM);

    EXPECT_NO_THROW(socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 100));
}

TEST_P(FailedConnect, IsTheErrorOfCreateAndConnectToo) {
    standIn.fail(GetParam().function, ENOMEM);

    EXPECT_EQ(GetParam().text + "Cannot allocate memory on [Socket cmd]",
              textThrownBy([&] { socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 100); }));
    expectClosed(standIn, socket);
}

TEST_P(RefusedEndpoint, ThrowsTheErrorOf0MqAndClosesTheSocket) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(GetParam().protocol);

    EXPECT_EQ("Socket: Failed connecting/binding socket: " + GetParam().reason + " on [Socket cmd]",
              textThrownBy([&] { socket.connect(GetParam().endpoint, 100); }));

    EXPECT_EQ(1U, standIn.journal().count("zmq_bind " + GetParam().address) +
                      standIn.journal().count("zmq_connect " + GetParam().address));
    expectClosed(standIn, socket);
}

TEST_F(FailureDuringConnect, BindReportsTheErrorOfItsLastAttempt) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    socket.createAndConnect(Protocol::Rep, endpoint, 0);
    socket.create(Protocol::Rep);
    standIn.journal().clear();
    // The address is one that this process has given up: it is tried again.
    standIn.fail("zmq_bind", EADDRINUSE);
    standIn.after("zmq_bind", [&] {
        standIn.fail("zmq_bind", EACCES);
        standIn.after("zmq_bind", {});
    });
    standIn.after("zmq_close", [] { errno = ENOTSOCK; });

    EXPECT_EQ("Socket: Failed connecting/binding socket: Permission denied on [Socket cmd]",
              textThrownBy([&] { socket.connect(endpoint, 0); }));

    EXPECT_EQ(2U, standIn.journal().count("zmq_bind"));
    expectClosed(standIn, socket);
}

TEST_F(FailureDuringConnect, EveryNegativeResultIsAFailure) {
    socket.create(Protocol::Req);
    standIn.answer("zmq_connect", -2);
    standIn.after("zmq_connect", [] { errno = ENOMEM; });

    EXPECT_EQ("Socket: Failed connecting/binding socket: Cannot allocate memory on [Socket cmd]",
              textThrownBy([&] { socket.connect(nobody, 0); }));
}

TEST_F(FailureDuringConnect, APositiveResultIsNone) {
    socket.create(Protocol::Req);
    standIn.answer("zmq_connect", 1);

    EXPECT_NO_THROW(socket.connect(nobody, 0));
}

TEST_F(FailureDuringConnect, ATimeoutOf2147483648IsRefusedBy0Mq) {
    for (const unsigned int timeout : {2147483648U, 4294967294U}) {
        socket.create(Protocol::Req);

        EXPECT_EQ("Socket: Error setting ZMQ_RCVTIMEO Invalid argument on [Socket cmd]",
                  textThrownBy([&] { socket.connect(nobody, timeout); }));

        expectClosed(standIn, socket);
    }
}

TEST_F(FailureDuringConnect, ARefusedLingerIsIgnoredAndTheEndpointRecorded) {
    socket.create(Protocol::Req);
    standIn.fail("zmq_setsockopt 17", EINVAL, 1, 2);
    standIn.journal().clear();

    socket.connect(nobody, 100);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("debug: Connecting [Socket cmd], sending to ipc:///nonexistent/nobody",
                            "zmq_connect ipc:///nonexistent/nobody", "zmq_setsockopt 27 = 100 (4 bytes)",
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect ipc:///nonexistent/nobody"));
    EXPECT_EQ(1U, standIn.journal().count("debug: Connected [Socket cmd]"));
}

TEST_F(FailureDuringConnect, AFailingChmodIsIgnoredAndTheEndpointRecorded) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    socket.create(Protocol::Rep);
    standIn.fail("chmod", EPERM);
    standIn.journal().clear();

    socket.connect(endpoint, 100);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("debug: Connecting [Socket cmd], listening on ipc://" + endpoint.address,
                            "zmq_bind ipc://" + endpoint.address, "chmod " + endpoint.address + " 777",
                            "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 17 = 2000 (4 bytes)",
                            "debug: Connected [Socket cmd]"));
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_EQ(1U, standIn.journal().count("debug: Connected [Socket cmd]"));
}

TEST_F(FailureDuringConnect, AnIpcNameThatIsNoFileIsConnectedAllTheSame) {
    const SocketEndpoint endpoint(Transport::Ipc, "@" + temporaryFolder(), 0);
    socket.create(Protocol::Rep);

    EXPECT_NO_THROW(socket.connect(endpoint, 100));

    EXPECT_EQ(1U, standIn.journal().count("chmod " + endpoint.address + " 777"));
}

TEST_F(FailureDuringConnect, MemoryThatRunsOutInFrontClosesTheSocket) {
    socket.createAndConnect(Protocol::Req, nobody, 0);
    standIn.journal().clear();
    standIn.after("debug", [] { throw std::bad_alloc(); });

    EXPECT_THROW(socket.connect(freshEndpoint(Transport::Ipc), 100), std::bad_alloc);

    EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
    standIn.after("debug", {});
    expectClosed(standIn, socket);
}

TEST_F(FailureDuringConnect, MemoryThatRunsOutAfterTheRecordClosesTheSocket) {
    socket.create(Protocol::Req);
    standIn.after("zmq_setsockopt 17", [&] { standIn.after("debug", [] { throw std::bad_alloc(); }); });

    EXPECT_THROW(socket.connect(nobody, 100), std::bad_alloc);

    EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
    standIn.after("debug", {});
    expectClosed(standIn, socket);
}

} // namespace rk::tests
