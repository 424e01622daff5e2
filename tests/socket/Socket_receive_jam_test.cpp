#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/NativeSocket.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::ZmqContextTerminationException;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr unsigned int patienceMs = 20000;
constexpr auto readLine = "zmq_recv 256 bytes, flags 0";
constexpr auto connected = "debug: Connected [Socket control]";
constexpr auto rate = "debug: [Socket control]: Rate is ";
constexpr auto warning =
    "warning: [Socket control] Attempting reset of the connections to preserve 0MQ state machine integrity";

/// A reply socket that has received a request and not replied.
class JammedReply : public testing::Test {
protected:
    explicit JammedReply(Transport::Transport transport = Transport::Inproc) : endpoint(freshEndpoint(transport)) {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        unanswered.connect(endpoint);
        unanswered.send("first");
        EXPECT_EQ("first", receiveText(server));
        standIn.journal().clear();
    }

    std::string address() const { return endpoint.toString(Protocol::Rep); }

    /// What the server receives next, when a new client sends a request as soon as the server is rebuilt; the client's
    /// reply is then `reply`.
    std::string receiveFromNewClient(const std::string& request, std::string& reply) {
        NativeSocket client(Protocol::Req);
        standIn.journal().clear();
        std::thread thread([&] {
            EXPECT_TRUE(standIn.journal().waitFor(connected));
            client.connect(endpoint);
            client.send(request);
            reply = client.receive();
        });
        const std::string received = receiveText(server);
        sendText(server, "reply to " + received);
        thread.join();
        return received;
    }

    /// Without the repeated attempts at an address that is still being released.
    std::vector<std::string> linesOnce() {
        std::vector<std::string> lines = standIn.journal().lines();
        lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
        return lines;
    }

    StandIn standIn;
    const socket::SocketEndpoint endpoint;
    Socket server{"control", ClosePolicy::DropPending};
    NativeSocket unanswered{Protocol::Req};
};

class JammedReplyOverTransport : public JammedReply, public testing::WithParamInterface<Transport::Transport> {
protected:
    JammedReplyOverTransport() : JammedReply(GetParam()) {}

    std::vector<std::string> expectedLines() const {
        std::vector<std::string> lines{readLine,
                                       warning,
                                       "zmq_close",
                                       "zmq_socket 4",
                                       "debug: Connecting [Socket control], listening on " + address(),
                                       "zmq_bind " + address()};
        if (GetParam() == Transport::Ipc) {
            lines.push_back("chmod " + endpoint.address + " 777");
        }
        lines.insert(lines.end(), {"zmq_setsockopt 27 = 20000 (4 bytes)", "zmq_setsockopt 17 = 0 (4 bytes)", connected,
                                   readLine, "zmq_send 15 bytes, flags 0"});
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, JammedReplyOverTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& tested) { return Transport::ToString(tested.param); });

} // namespace

TEST_P(JammedReplyOverTransport, IsRebuiltWithAWarningAndAwaitsANewRequest) {
    std::string reply;

    EXPECT_EQ("second", receiveFromNewClient("second", reply));

    EXPECT_EQ("reply to second", reply);
    EXPECT_EQ(expectedLines(), linesOnce());
}

TEST_P(JammedReplyOverTransport, ReceivesAnEmptyBlockOnceMoreToo) {
    std::string reply;

    EXPECT_EQ("", receiveFromNewClient("", reply));

    EXPECT_EQ("reply to ", reply);
}

TEST_P(JammedReplyOverTransport, IsRebuiltEachTimeThatItReceivesOutOfTurn) {
    std::string reply;
    receiveFromNewClient("second", reply);
    unanswered = NativeSocket(Protocol::Req);
    unanswered.connect(endpoint);
    unanswered.send("third");
    EXPECT_EQ("third", receiveText(server));

    EXPECT_EQ("fourth", receiveFromNewClient("fourth", reply));

    EXPECT_EQ("reply to fourth", reply);
    EXPECT_EQ(1U, standIn.journal().count(warning));
}

TEST_F(JammedReply, AbandonsTheRequestThatItOwedAReply) {
    std::string reply;
    receiveFromNewClient("second", reply);

    EXPECT_FALSE(unanswered.hasInput());
}

TEST_F(JammedReply, ThrowsWhenNoNewRequestComesInTime) {
    server.connect(freshEndpoint(Transport::Inproc), 1);
    standIn.journal().clear();

    EXPECT_EQ("Receive error: Resource temporarily unavailable on [Socket control]",
              textThrownBy([&] { receiveText(server); }));

    EXPECT_EQ(2U, standIn.journal().count(readLine));
    EXPECT_EQ(1U, standIn.journal().count(warning));
}

TEST_F(JammedReply, BindsEveryEndpointAgain) {
    const socket::SocketEndpoint second = freshEndpoint(Transport::Ipc);
    server.connect(second, 1);
    standIn.journal().clear();

    textThrownBy([&] { receiveText(server); });

    std::vector<std::string> binds = standIn.journal().linesWith("zmq_bind");
    binds.erase(std::unique(binds.begin(), binds.end()), binds.end());
    EXPECT_THAT(binds, ElementsAre("zmq_bind " + address(), "zmq_bind " + second.toString(Protocol::Rep)));
}

TEST_F(JammedReply, IsTriedOnceMoreAndNoMore) {
    standIn.fail("zmq_recv", EFSM, 1, 2);

    EXPECT_EQ("Receive error: Operation cannot be accomplished in current state on [Socket control]",
              textThrownBy([&] { receiveText(server); }));

    EXPECT_EQ(2U, standIn.journal().count("zmq_recv"));
    EXPECT_EQ(1U, standIn.journal().count(warning));
    EXPECT_EQ(1U, standIn.journal().count("zmq_socket"));
}

TEST_F(JammedReply, ReportsTheErrorOfTheSecondAttempt) {
    standIn.fail("zmq_recv", EINTR, 2);

    EXPECT_EQ("Receive error: Interrupted system call on [Socket control]", textThrownBy([&] { receiveText(server); }));
}

TEST_F(JammedReply, ReportsATerminatedContextOfTheSecondAttempt) {
    standIn.fail("zmq_recv", ETERM, 2);

    EXPECT_EQ("Context terminated in recv() for socket [Socket control]",
              textThrownBy<ZmqContextTerminationException>([&] { receiveText(server); }));
}

TEST_F(JammedReply, StaysInServiceWhenTheSecondAttemptFails) {
    standIn.fail("zmq_recv", EINTR, 2);
    textThrownBy([&] { receiveText(server); });
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    client.send("third");

    EXPECT_EQ("third", receiveText(server));
}

TEST_F(JammedReply, OtherErrorsRebuildNothing) {
    standIn.fail("zmq_recv", EINTR);

    EXPECT_EQ("Receive error: Interrupted system call on [Socket control]", textThrownBy([&] { receiveText(server); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(readLine));
    sendText(server, "reply");
    EXPECT_EQ("reply", unanswered.receive());
}

TEST_F(JammedReply, ThatCannotBeRebuiltReceivesOnANullHandleAndEndsClosed) {
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_EQ("Receive error: Socket operation on non-socket on [Socket control]",
              textThrownBy([&] { receiveText(server); }));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre(readLine, warning, "zmq_close", "zmq_socket 4",
                            "error: [Socket control]: Error resetting socket: Socket: Failed creating socket "
                            "[Socket control] of type 3: Too many open files on [Socket control]",
                            readLine));
    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { receiveText(server); }));
}

TEST_F(JammedReply, ThatCannotBeBoundAgainReceivesOnANullHandleAndEndsClosed) {
    standIn.fail("zmq_bind", EACCES);

    EXPECT_EQ("Receive error: Socket operation on non-socket on [Socket control]",
              textThrownBy([&] { receiveText(server); }));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre(readLine, warning, "zmq_close", "zmq_socket 4",
                            "debug: Connecting [Socket control], listening on " + address(), "zmq_bind " + address(),
                            "zmq_close",
                            "error: [Socket control]: Error resetting socket: Socket: Failed connecting/binding "
                            "socket: Permission denied on [Socket control]",
                            readLine));
    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { receiveText(server); }));
}

TEST_F(JammedReply, CountsTheSecondAttemptAlone) {
    server.activateStatistics(true);
    standIn.fail("zmq_recv", EFSM, 1, StandIn::always);
    for (int block = 0; block < 50; ++block) {
        textThrownBy([&] { receiveText(server); });
    }
    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));

    const auto jamAndReceive = [&] {
        standIn.fail("zmq_recv", EFSM);
        standIn.after("warning", [&] { standIn.answer("zmq_recv", 6); });
        EXPECT_EQ(6, server.receive(nullptr, 0));
    };
    for (int block = 1; block < 50; ++block) {
        jamAndReceive();
    }
    EXPECT_EQ(0U, standIn.journal().count(rate));
    jamAndReceive();
    EXPECT_EQ(1U, standIn.journal().count(rate));
}

} // namespace rk::tests
