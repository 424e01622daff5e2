#include "support/Calls.h"
#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <zmq.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <new>
#include <ostream>
#include <set>
#include <stdexcept>

// Repairs_test.cpp tests the order of the calls for any number of endpoints.

namespace rk::tests {

namespace {

const std::string attachText = "Socket: Failed connecting/binding socket: ";
const std::string timeoutText = "Socket: Error setting ZMQ_RCVTIMEO ";
const std::string subscribeText = "Socket: Error setting ZMQ_SUBSCRIBE ";
const std::string rcvTimeO = "zmq_setsockopt " + std::to_string(ZMQ_RCVTIMEO);

class SocketConnect : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};

    std::vector<std::string> connect(const SocketEndpoint& endpoint, unsigned int receiveTimeout) {
        standIn.journal().clear();
        socket.connect(endpoint, receiveTimeout);
        return standIn.journal().lines();
    }

    std::string textOfConnect(const SocketEndpoint& endpoint, unsigned int receiveTimeout = 100) {
        return textThrownBy([&] { socket.connect(endpoint, receiveTimeout); });
    }
};

/// A socket of an unknown pattern, which only the stand-in for ZeroMQ can create.
class SocketConnectOfNoPattern : public SocketConnect, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(OfType, SocketConnectOfNoPattern, testing::Values(0, 5, -1));

/// A call of ZeroMQ that fails while a socket of the pattern is connected, and its part of the message.
struct FailingCall {
    std::string function;
    Protocol::Protocol protocol;
    std::string text;
};

void PrintTo(const FailingCall& call, std::ostream* out) {
    *out << call.function << " of " << Protocol::ToString(call.protocol);
}

/// A socket that has one endpoint and fails to connect a second one.
class SocketConnectFailing : public SocketConnect, public testing::WithParamInterface<FailingCall> {
protected:
    SocketConnectFailing() {
        socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 0);
        standIn.journal().clear();
    }

    std::string failWith(int error) {
        standIn.fail(GetParam().function, error);
        return textThrownBy<std::runtime_error>([&] { socket.connect(freshEndpoint(Transport::Ipc), 100); });
    }
};

INSTANTIATE_TEST_SUITE_P(In, SocketConnectFailing,
                         testing::Values(FailingCall{"zmq_bind", Protocol::Pub, attachText},
                                         FailingCall{"zmq_bind", Protocol::Rep, attachText},
                                         FailingCall{"zmq_connect", Protocol::Sub, attachText},
                                         FailingCall{"zmq_connect", Protocol::Req, attachText},
                                         FailingCall{rcvTimeO, Protocol::Pub, timeoutText},
                                         FailingCall{rcvTimeO, Protocol::Req, timeoutText},
                                         FailingCall{"zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE), Protocol::Sub,
                                                     subscribeText}));

} // namespace

TEST_F(SocketConnect, CallsZmqAsEachPatternNeeds) {
    const SocketEndpoint port = freshEndpoint(Transport::Tcp);
    const SocketEndpoint path = freshEndpoint(Transport::Ipc);
    const std::string bound = "tcp://*:" + std::to_string(port.port);
    const std::string connected = "tcp://127.0.0.1:" + std::to_string(port.port);
    const std::string timeout = calls::set(ZMQ_RCVTIMEO, 100);
    const std::string linger = calls::set(ZMQ_LINGER, 2000);
    const std::string begin = "debug: Connecting [Socket cmd], ";
    const std::string end = "debug: Connected [Socket cmd]";
    const auto connectAs = [&](Protocol::Protocol pattern, const SocketEndpoint& endpoint) {
        socket.create(pattern);
        return calls::once(connect(endpoint, 100));
    };

    EXPECT_THAT(connectAs(Protocol::Pub, port),
                ElementsAre(begin + "sending to " + bound, linger, "zmq_bind " + bound, timeout, linger, end));
    EXPECT_THAT(connectAs(Protocol::Rep, path),
                ElementsAre(begin + "listening on ipc://" + path.address, linger, "zmq_bind ipc://" + path.address,
                            "chmod " + path.address + " 777", timeout, linger, end));
    EXPECT_THAT(connectAs(Protocol::Req, port),
                ElementsAre(begin + "sending to " + connected, "zmq_connect " + connected, timeout, linger, end));
    EXPECT_THAT(connectAs(Protocol::Sub, port),
                ElementsAre(begin + "subscribing to " + connected, "zmq_connect " + connected, timeout,
                            calls::subscribe(), calls::set(ZMQ_LINGER, 0), end));
}

TEST_F(SocketConnect, ThrowsOnAClosedSocket) {
    socket.create(Protocol::Sub);
    socket.close();
    standIn.journal().clear();
    EXPECT_EQ("Socket: Cannot connect a NULL socket", textOfConnect(unserved));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());

    socket.createAndConnect(Protocol::Req, unserved, 0);
    EXPECT_EQ(1U, standIn.journal().count(calls::set(ZMQ_LINGER, 2000))) << "a subscriber's would be 0";
}

TEST_P(SocketConnectOfNoPattern, ThrowsAndCloses) {
    ZmqContext other;
    standIn.answer("zmq_socket", other.handleOf(ZMQ_PAIR));
    socket.create(static_cast<Protocol::Protocol>(GetParam()));
    standIn.journal().clear();

    EXPECT_EQ("Socket: Socket type not handled", textOfConnect(SocketEndpoint(Transport::Tcp, "node1", 5555)));
    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("debug: Connecting [Socket cmd], [undef protocol] to tcp://node1:5555", "zmq_close"));
    expectClosed(standIn, socket);
}

TEST_F(SocketConnect, DistinguishesTransports) {
    socket.createAndConnect(Protocol::Pub, {Transport::Inproc, "9a", 0}, 0);
    EXPECT_EQ(attachText + "Invalid argument on [Socket cmd]",
              textOfConnect({static_cast<Transport::Transport>(19), "a", 0}));
}

TEST_F(SocketConnect, KeepsACopyOfTheEndpoint) {
    SocketEndpoint endpoint = unserved;
    socket.createAndConnect(Protocol::Req, endpoint, 0);
    endpoint.address = "/nonexistent/other";
    standIn.journal().clear();
    socket.resetConnections();

    EXPECT_THAT(standIn.journal().linesWith("zmq_connect"), ElementsAre("zmq_connect ipc:///nonexistent/nobody"));
}

TEST_F(SocketConnect, RecordsTheLastEndpoint) {
    EXPECT_EQ(SocketEndpoint(), socket.lastEndpoint());
    const SocketEndpoint other(Transport::Tcp, "127.0.0.1", 9);
    socket.createAndConnect(Protocol::Sub, unserved, 0);
    socket.connect(other, 0);
    EXPECT_EQ(other, socket.lastEndpoint());
    socket.connect(unserved, 0); // ignored
    EXPECT_EQ(other, socket.lastEndpoint());
    standIn.fail("zmq_connect", EINVAL);
    EXPECT_EQ(attachText + "Invalid argument on [Socket cmd]", textOfConnect({Transport::Tcp, "127.0.0.1", 10}));
    EXPECT_EQ(SocketEndpoint(), socket.lastEndpoint());
}

TEST_F(SocketConnect, RecordsThePortTheSystemChose) {
    const SocketEndpoint any(Transport::Tcp, "127.0.0.1", 0);
    socket.createAndConnect(Protocol::Rep, any, 0);
    const SocketEndpoint bound = socket.lastEndpoint();
    EXPECT_NE(0, bound.port);
    EXPECT_EQ("127.0.0.1", bound.address);
    EXPECT_NO_THROW(Socket("client", ClosePolicy::DropPending).createAndConnect(Protocol::Req, bound, 0));

    standIn.fail("zmq_getsockopt " + std::to_string(ZMQ_LAST_ENDPOINT), EINVAL);
    socket.createAndConnect(Protocol::Rep, any, 0);
    EXPECT_EQ(any, socket.lastEndpoint());
}

TEST_F(SocketConnect, RecordsTheFileTheSystemChose) {
    socket.createAndConnect(Protocol::Rep, {Transport::Ipc, "*", 0}, 0);
    EXPECT_EQ(Transport::Ipc, socket.lastEndpoint().transport);
    EXPECT_NE("*", socket.lastEndpoint().address);
}

TEST_F(SocketConnect, RecordsWhileAnotherThreadReads) {
    const SocketEndpoint ends[] = {freshEndpoint(Transport::Inproc), freshEndpoint(Transport::Inproc)};
    std::atomic<bool> over{false};
    auto reader = std::async(std::launch::async, [&] {
        std::set<std::string> seen;
        while (!over) {
            seen.insert(socket.lastEndpoint().toString(Protocol::Rep));
        }
        return seen;
    });
    for (int round = 0; round < 200; ++round) {
        socket.createAndConnect(Protocol::Rep, ends[round % 2], 0);
    }
    over = true;
    EXPECT_THAT(reader.get(), testing::IsSubsetOf({SocketEndpoint().toString(Protocol::Rep),
                                                   ends[0].toString(Protocol::Rep), ends[1].toString(Protocol::Rep)}));
}

TEST_F(SocketConnect, SetsTheReceiveTimeout) {
    ZmqContext other;
    void* const handle = other.handleOf(ZMQ_REQ);
    standIn.answer("zmq_socket", handle);
    socket.create(Protocol::Req);
    const std::pair<unsigned int, int> timeouts[] = {
        {0, -1}, {50, 50}, {0, 50}, {2147483647, 2147483647}, {0, 2147483647}, {4294967295, -1}, {1, 1}};
    for (const auto& [given, option] : timeouts) {
        socket.connect(freshEndpoint(Transport::Ipc), given);
        EXPECT_EQ(option, optionOf(handle, ZMQ_RCVTIMEO)) << given;
    }
    char byte = 0;
    EXPECT_THROW(socket.receive(&byte, 1), std::runtime_error);
    socket.close();
}

TEST_F(SocketConnect, FollowsCreateInCreateAndConnect) {
    for (int round = 0; round < 2; ++round) {
        standIn.journal().clear();
        socket.createAndConnect(Protocol::Req, unserved, 0);
        EXPECT_EQ(round == 0 ? 0U : 1U, standIn.journal().count("zmq_close"));
        EXPECT_THAT(
            standIn.journal().linesWith("zmq_"),
            testing::IsSupersetOf({calls::open(Protocol::Req), std::string("zmq_connect ipc:///nonexistent/nobody")}));
    }
    EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 0: Invalid argument on [Socket cmd]",
              textThrownBy([&] { socket.createAndConnect(Protocol::Undef, unserved, 100); }));
    expectClosed(standIn, socket);
}

// Failures

TEST_P(SocketConnectFailing, ThrowsTheErrorAndCloses) {
    const std::pair<int, const char*> errors[] = {
        {ENOMEM, "Cannot allocate memory"},
        {ENOCOMPATPROTO, "The protocol is not compatible with the socket type"},
        {ETERM, "Context was terminated"}};
    for (const auto& [error, reason] : errors) {
        standIn.journal().clear();
        standIn.fail("zmq_close", ENOTSOCK);
        EXPECT_EQ(GetParam().text + reason + " on [Socket cmd]", failWith(error));
        EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
        EXPECT_EQ("zmq_close", standIn.journal().lines().back());
        EXPECT_EQ(1U, standIn.journal().count("debug: "));
        EXPECT_EQ(0U, standIn.journal().count("error: "));
        expectClosed(standIn, socket);
        EXPECT_NO_THROW(socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 100));
    }
    standIn.fail(GetParam().function, ENOMEM);
    EXPECT_EQ(GetParam().text + "Cannot allocate memory on [Socket cmd]",
              textThrownBy([&] { socket.createAndConnect(GetParam().protocol, freshEndpoint(Transport::Ipc), 100); }));
    expectClosed(standIn, socket);
}

TEST_F(SocketConnect, FailsOnlyForANegativeResult) {
    socket.create(Protocol::Req);
    standIn.answer("zmq_connect", 1);
    EXPECT_NO_THROW(socket.connect(unserved, 0));
    standIn.answer("zmq_connect", -2);
    standIn.after("zmq_connect", [] { errno = ENOMEM; });

    EXPECT_EQ(attachText + "Cannot allocate memory on [Socket cmd]", textOfConnect(freshEndpoint(Transport::Ipc)));
}

TEST_F(SocketConnect, ThrowsWhenZmqRejectsTheTimeout) {
    for (const unsigned int timeout : {2147483648U, 4294967294U}) {
        socket.create(Protocol::Req);
        EXPECT_EQ(timeoutText + "Invalid argument on [Socket cmd]", textOfConnect(unserved, timeout));
        expectClosed(standIn, socket);
    }
}

TEST_F(SocketConnect, IgnoresARefusedLingerOrChmod) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    socket.create(Protocol::Rep);
    standIn.fail("chmod", EPERM);
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_LINGER), EINVAL, 1, 2);

    EXPECT_EQ("debug: Connected [Socket cmd]", connect(endpoint, 100).back());
    EXPECT_EQ(1U, standIn.journal().count("chmod"));
    EXPECT_EQ(2U, standIn.journal().count(calls::set(ZMQ_LINGER, 2000)));
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_EQ(1U, standIn.journal().count("debug: Connected [Socket cmd]"));
}

TEST_F(SocketConnect, BindsAnAbstractIpcName) {
    const SocketEndpoint endpoint(Transport::Ipc, "@" + temporaryFolder(), 0);
    socket.create(Protocol::Rep);
    EXPECT_NO_THROW(socket.connect(endpoint, 100));
    EXPECT_EQ(1U, standIn.journal().count("chmod " + endpoint.address + " 777"));
}

TEST_F(SocketConnect, ClosesWhenMemoryRunsOut) {
    const auto fail = [&] { standIn.after("debug", [] { throw std::bad_alloc(); }); };
    for (const bool early : {true, false}) {
        socket.create(Protocol::Req);
        standIn.journal().clear();
        if (early) {
            fail();
        } else {
            standIn.after("zmq_setsockopt " + std::to_string(ZMQ_LINGER), fail);
        }
        EXPECT_THROW(socket.connect(unserved, 100), std::bad_alloc);
        EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
        standIn.after("debug", {});
        expectClosed(standIn, socket);
    }
}

TEST_F(SocketConnect, ConnectsOncePerDistinctEndpoint) {
    const std::string host = "127.0.0.1";
    socket.create(Protocol::Req);
    for (const std::size_t expected : {1U, 0U}) {
        for (const SocketEndpoint& endpoint :
             {SocketEndpoint(Transport::Tcp, host, 1), SocketEndpoint(Transport::Tcp, host, 11),
              SocketEndpoint(Transport::Tcp, host + "1", 1), SocketEndpoint(Transport::Ipc, host, 1),
              SocketEndpoint(Transport::Ipc, host + ":1", 1)}) {
            standIn.journal().clear();
            socket.connect(endpoint, 0);
            EXPECT_EQ(expected, standIn.journal().count("zmq_connect")) << endpoint.toString(Protocol::Req);
        }
    }
    socket.connect({Transport::Ipc, host, 2}, 0);
    EXPECT_EQ(0U, standIn.journal().count("zmq_connect")) << "ipc has no ports";
}

} // namespace rk::tests
