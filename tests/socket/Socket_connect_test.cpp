#include "support/Closed.h"
#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/StandIn.h"
#include "support/ZmqHandle.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <limits>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(std::is_same_v<decltype(&Socket::connect), void (Socket::*)(const SocketEndpoint&, unsigned int)>);
static_assert(std::is_same_v<decltype(&Socket::createAndConnect),
                             void (Socket::*)(Protocol::Protocol, const SocketEndpoint&, unsigned int)>);

constexpr unsigned int patienceMs = 20000;

const SocketEndpoint nobody(Transport::Ipc, "/nonexistent/nobody", 0);
const SocketEndpoint first(Transport::Ipc, "/nonexistent/first", 0);
const SocketEndpoint second(Transport::Ipc, "/nonexistent/second", 0);
const SocketEndpoint third(Transport::Ipc, "/nonexistent/third", 0);

class Connect : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};

    std::vector<std::string> connect(const SocketEndpoint& endpoint, unsigned int receiveTimeout) {
        standIn.journal().clear();
        socket.connect(endpoint, receiveTimeout);
        return standIn.journal().lines();
    }

    std::vector<std::string> createAndConnect(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                                              unsigned int receiveTimeout = 100) {
        socket.create(protocol);
        return connect(endpoint, receiveTimeout);
    }
};

class ConnectOnTransport : public testing::TestWithParam<Transport::Transport> {
protected:
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, ConnectOnTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& instance) { return Transport::ToString(instance.param); });

/// A socket of a pattern that the library does not know, which only a 0MQ of the test's own making gives it.
class ConnectOfNoPattern : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(OfType, ConnectOfNoPattern, testing::Values(0, 5, -1));

/// The value of `ZMQ_RCVTIMEO` for a receive timeout of `connect`.
struct Timeout {
    unsigned int given;
    int option;
};

void PrintTo(const Timeout& timeout, std::ostream* out) {
    *out << timeout.given;
}

class ReceiveTimeout : public testing::TestWithParam<Timeout> {};

INSTANTIATE_TEST_SUITE_P(Of, ReceiveTimeout,
                         testing::Values(Timeout{1, 1}, Timeout{2000, 2000}, Timeout{2147483647, 2147483647},
                                         Timeout{4294967295, -1}));

} // namespace

TEST_F(Connect, OfAClosedSocketThrowsAndDoesNothing) {
    EXPECT_EQ("Socket: Cannot connect a NULL socket", textThrownBy([&] { socket.connect(nobody, 100); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
    expectClosed(standIn, socket);
}

TEST_F(Connect, OfAClosedSubscriberLeavesTheClosePolicy) {
    socket.create(Protocol::Sub);
    socket.close();
    EXPECT_THROW(socket.connect(nobody, 0), std::runtime_error);

    createAndConnect(Protocol::Req, nobody);

    EXPECT_THAT(standIn.journal().linesWith("zmq_setsockopt 17"), ElementsAre("zmq_setsockopt 17 = 2000 (4 bytes)"));
}

// The whole order of steps, for each pattern

TEST_F(Connect, BindsAPublisher) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string address = "tcp://*:" + std::to_string(endpoint.port);

    EXPECT_THAT(createAndConnect(Protocol::Pub, endpoint),
                ElementsAre("debug: Connecting [Socket cmd], sending to " + address, "zmq_bind " + address,
                            "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 17 = 2000 (4 bytes)",
                            "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, BindsAReplier) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string address = "tcp://*:" + std::to_string(endpoint.port);

    EXPECT_THAT(createAndConnect(Protocol::Rep, endpoint),
                ElementsAre("debug: Connecting [Socket cmd], listening on " + address, "zmq_bind " + address,
                            "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 17 = 2000 (4 bytes)",
                            "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, ConnectsASubscriberToEverythingWithoutLinger) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string address = "tcp://127.0.0.1:" + std::to_string(endpoint.port);

    EXPECT_THAT(createAndConnect(Protocol::Sub, endpoint),
                ElementsAre("debug: Connecting [Socket cmd], subscribing to " + address, "zmq_connect " + address,
                            "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 6 = none (0 bytes)",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, ConnectsARequester) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string address = "tcp://127.0.0.1:" + std::to_string(endpoint.port);

    EXPECT_THAT(createAndConnect(Protocol::Req, endpoint),
                ElementsAre("debug: Connecting [Socket cmd], sending to " + address, "zmq_connect " + address,
                            "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 17 = 2000 (4 bytes)",
                            "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, NamesAnInprocEndpointAlikeForBothSides) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    const std::string address = "inproc://" + endpoint.address;
    Socket server("server", ClosePolicy::LingerTwoSeconds);
    server.create(Protocol::Rep);
    standIn.journal().clear();

    server.connect(endpoint, 0);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("debug: Connecting [Socket server], listening on " + address, "zmq_bind " + address,
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket server]"));
    EXPECT_THAT(createAndConnect(Protocol::Req, endpoint, 0),
                ElementsAre("debug: Connecting [Socket cmd], sending to " + address, "zmq_connect " + address,
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, OpensTheFileOfAnIpcEndpointRightAfterTheBind) {
    for (const auto& [protocol, phrase] :
         {std::pair(Protocol::Pub, "sending to "), std::pair(Protocol::Rep, "listening on ")}) {
        const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);

        EXPECT_THAT(createAndConnect(protocol, endpoint),
                    ElementsAre(std::string("debug: Connecting [Socket cmd], ") + phrase + "ipc://" + endpoint.address,
                                "zmq_bind ipc://" + endpoint.address, "chmod " + endpoint.address + " 777",
                                "zmq_setsockopt 27 = 100 (4 bytes)", "zmq_setsockopt 17 = 2000 (4 bytes)",
                                "debug: Connected [Socket cmd]"));
    }
}

TEST_F(Connect, ChangesNoFileForThoseWhoConnect) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);

    createAndConnect(Protocol::Sub, endpoint);
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect ipc://" + endpoint.address));
    EXPECT_EQ(0U, standIn.journal().count("chmod"));

    createAndConnect(Protocol::Req, endpoint);
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect ipc://" + endpoint.address));
    EXPECT_EQ(0U, standIn.journal().count("chmod"));
}

TEST_P(ConnectOfNoPattern, ClosesTheSocketAndThrows) {
    StandIn standIn;
    ZmqContext context;
    Socket socket("cmd", ClosePolicy::DropPending);
    standIn.answer("zmq_socket", context.handleOf(ZMQ_PAIR));
    socket.create(static_cast<Protocol::Protocol>(GetParam()));
    standIn.journal().clear();

    EXPECT_EQ("Socket: Socket type not handled",
              textThrownBy([&] { socket.connect(SocketEndpoint(Transport::Tcp, "node1", 5555), 100); }));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("debug: Connecting [Socket cmd], [undef protocol] to tcp://node1:5555", "zmq_close"));
    expectClosed(standIn, socket);
}

TEST_P(ConnectOnTransport, JoinsRequesterAndReplier) {
    char byte = 'x';
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);

    client.send(&byte, 1);
    ASSERT_EQ(1, server.receive(&byte, 1));
    server.send(&byte, 1);

    EXPECT_EQ(1, client.receive(&byte, 1));
    EXPECT_EQ('x', byte);
}

TEST_P(ConnectOnTransport, SubscribesToEverything) {
    std::string error;
    server.createAndConnect(Protocol::Pub, endpoint, 0);
    client.createAndConnect(Protocol::Sub, endpoint, patienceMs);
    char byte = 0;
    do {
        server.send(&byte, 0);
    } while (client.poll(1, error) == socket::PollResult::Timeout);
    byte = '\xff';

    server.send(&byte, 1);

    char received = 0;
    while (client.receive(&received, 1) == 0) {
        // The empty messages that showed when the connection was there.
    }
    EXPECT_EQ(byte, received);
}

// Several endpoints

TEST_F(Connect, PassesOverAnEndpointThatItHas) {
    createAndConnect(Protocol::Req, nobody, 100);

    EXPECT_THAT(connect(nobody, 100), ElementsAre());
}

TEST_F(Connect, KeepsTheRecordedTimeoutOfAnEndpointThatItHas) {
    createAndConnect(Protocol::Req, nobody, 100);

    EXPECT_THAT(connect(nobody, 300), ElementsAre());

    socket.resetConnections();
    EXPECT_THAT(standIn.journal().linesWith("zmq_setsockopt 27"), ElementsAre("zmq_setsockopt 27 = 100 (4 bytes)"));
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect"));
}

TEST_F(Connect, PassesOverAnEndpointThatItHasHadForLong) {
    createAndConnect(Protocol::Req, first);
    connect(second, 100);
    connect(third, 100);

    EXPECT_THAT(connect(first, 100), ElementsAre());
    EXPECT_THAT(connect(second, 100), ElementsAre());
}

TEST_F(Connect, PassesOverAnEndpointThatDiffersInAPortWithoutMeaning) {
    createAndConnect(Protocol::Req, {Transport::Ipc, "/nonexistent/nobody", 1});

    EXPECT_THAT(connect({Transport::Ipc, "/nonexistent/nobody", 2}, 100), ElementsAre());
}

TEST_F(Connect, TakesNoUnknownTransportForOneThatItHas) {
    const SocketEndpoint known(Transport::Inproc, "9a", 0);
    const SocketEndpoint unknown(static_cast<Transport::Transport>(19), "a", 0);
    createAndConnect(Protocol::Pub, known);

    EXPECT_EQ("Socket: Failed connecting/binding socket: Invalid argument on [Socket cmd]",
              textThrownBy([&] { socket.connect(unknown, 0); }));
}

TEST_F(Connect, PassesOverABoundEndpointToo) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    createAndConnect(Protocol::Rep, endpoint);

    EXPECT_THAT(connect(endpoint, 100), ElementsAre());
}

TEST_F(Connect, BindsAnotherPortOfTheSameAddress) {
    createAndConnect(Protocol::Rep, freshEndpoint(Transport::Tcp));
    const SocketEndpoint other = freshEndpoint(Transport::Tcp);
    const std::string address = "tcp://*:" + std::to_string(other.port);

    EXPECT_THAT(connect(other, 0),
                ElementsAre("debug: Connecting [Socket cmd], listening on " + address, "zmq_bind " + address,
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, ServesEveryEndpointThatItHas) {
    std::vector<SocketEndpoint> endpoints;
    socket.create(Protocol::Rep);
    for (const auto transport : {Transport::Tcp, Transport::Ipc, Transport::Inproc, Transport::Tcp}) {
        endpoints.push_back(freshEndpoint(transport));
        socket.connect(endpoints.back(), patienceMs);
    }
    for (const SocketEndpoint& endpoint : endpoints) {
        Socket client("client", ClosePolicy::DropPending);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        char byte = 'x';
        client.send(&byte, 1);
        ASSERT_EQ(1, socket.receive(&byte, 1));
        socket.send(&byte, 1);
        EXPECT_EQ(1, client.receive(&byte, 1));
    }
}

TEST_F(Connect, KeepsACopyOfTheEndpoint) {
    SocketEndpoint endpoint = nobody;
    createAndConnect(Protocol::Req, endpoint);
    endpoint.address = "/nonexistent/other";
    standIn.journal().clear();

    socket.resetConnections();

    EXPECT_THAT(standIn.journal().linesWith("zmq_connect"), ElementsAre("zmq_connect ipc:///nonexistent/nobody"));
}

// The receive timeout

TEST_P(ReceiveTimeout, Reaches0MqAsItsOption) {
    StandIn standIn;
    ZmqContext context;
    Socket socket("cmd", ClosePolicy::DropPending);
    void* const handle = context.handleOf(ZMQ_REQ);
    standIn.answer("zmq_socket", handle);

    socket.createAndConnect(Protocol::Req, freshEndpoint(Transport::Ipc), GetParam().given);

    EXPECT_EQ(GetParam().option, optionOf(handle, ZMQ_RCVTIMEO));
    EXPECT_THAT(standIn.journal().linesWith("zmq_setsockopt 27"),
                ElementsAre("zmq_setsockopt 27 = " + std::to_string(GetParam().option) + " (4 bytes)"));
}

TEST_F(Connect, LeavesTheTimeoutAsItIsForZero) {
    ZmqContext other;
    void* const handle = other.handleOf(ZMQ_REQ);
    standIn.answer("zmq_socket", handle);
    createAndConnect(Protocol::Req, first, 0);
    EXPECT_EQ(-1, optionOf(handle, ZMQ_RCVTIMEO));
    connect(second, 50);

    connect(third, 0);

    EXPECT_EQ(50, optionOf(handle, ZMQ_RCVTIMEO));
    EXPECT_EQ(0U, standIn.journal().count("zmq_setsockopt 27"));
    socket.close();
}

TEST_F(Connect, RecordsATimeoutOfZero) {
    createAndConnect(Protocol::Req, nobody, 0);
    standIn.journal().clear();

    socket.resetConnections();

    EXPECT_EQ(1U, standIn.journal().count("zmq_connect"));
    EXPECT_EQ(0U, standIn.journal().count("zmq_setsockopt 27"));
}

TEST_F(Connect, EndsAReceiveAfterTheTimeout) {
    char byte = 0;
    createAndConnect(Protocol::Sub, nobody, 1);

    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket cmd]",
              textThrownBy([&] { socket.receive(&byte, 1); }));
}

// createAndConnect

TEST_F(Connect, FollowsCreateInCreateAndConnect) {
    socket.createAndConnect(Protocol::Req, nobody, 100);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_socket 3", "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/nobody",
                            "zmq_connect ipc:///nonexistent/nobody", "zmq_setsockopt 27 = 100 (4 bytes)",
                            "zmq_setsockopt 17 = 2000 (4 bytes)", "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, ConnectsAnewInASecondCreateAndConnect) {
    socket.createAndConnect(Protocol::Req, nobody, 100);
    standIn.journal().clear();

    socket.createAndConnect(Protocol::Req, nobody, 0);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_close", "zmq_socket 3",
                            "debug: Connecting [Socket cmd], sending to ipc:///nonexistent/nobody",
                            "zmq_connect ipc:///nonexistent/nobody", "zmq_setsockopt 17 = 2000 (4 bytes)",
                            "debug: Connected [Socket cmd]"));
}

TEST_F(Connect, IsNotTriedWhenCreateFails) {
    EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 0: Invalid argument on [Socket cmd]",
              textThrownBy([&] { socket.createAndConnect(Protocol::Undef, nobody, 100); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket -1"));
    expectClosed(standIn, socket);
}

} // namespace rk::tests
