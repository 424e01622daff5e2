#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <string>

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
constexpr auto warning =
    "warning: [Socket cmd] Attempting reset of the connections to preserve 0MQ state machine integrity";

/// A request socket that has sent a request and not had its reply.
class JammedRequest : public testing::Test {
protected:
    explicit JammedRequest(Transport::Transport transport = Transport::Inproc) : endpoint(freshEndpoint(transport)) {
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
        client.createAndConnect(Protocol::Req, endpoint, patienceMs);
        sendText(client, "first");
        EXPECT_EQ("first", receiveText(server));
        standIn.journal().clear();
    }

    std::string address() const { return endpoint.toString(Protocol::Req); }

    StandIn standIn;
    const socket::SocketEndpoint endpoint;
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"cmd", ClosePolicy::DropPending};
};

class JammedRequestOverTransport : public JammedRequest, public testing::WithParamInterface<Transport::Transport> {
protected:
    JammedRequestOverTransport() : JammedRequest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(OnEveryTransport, JammedRequestOverTransport,
                         testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& tested) { return Transport::ToString(tested.param); });

} // namespace

TEST_P(JammedRequestOverTransport, IsRebuiltWithAWarningAndSentOnceMore) {
    sendText(client, "second");

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_send 6 bytes, flags 0", warning, "zmq_close", "zmq_socket 3",
                            "debug: Connecting [Socket cmd], sending to " + address(), "zmq_connect " + address(),
                            "zmq_setsockopt 27 = 20000 (4 bytes)", "zmq_setsockopt 17 = 0 (4 bytes)",
                            "debug: Connected [Socket cmd]", "zmq_send 6 bytes, flags 0"));
}

TEST_P(JammedRequestOverTransport, GetsItsNextRequestAnswered) {
    sendText(client, "second");

    sendText(server, "answer to the first, which nobody awaits");
    EXPECT_EQ("second", receiveText(server));
    sendText(server, "answer to the second");
    EXPECT_EQ("answer to the second", receiveText(client));
}

TEST_P(JammedRequestOverTransport, SendsAnEmptyBlockOnceMoreToo) {
    sendText(client, "");

    sendText(server, "answer to the first, which nobody awaits");
    EXPECT_EQ("", receiveText(server));
}

TEST_P(JammedRequestOverTransport, IsRebuiltEachTimeThatItSendsOutOfTurn) {
    sendText(client, "second");
    sendText(client, "third");

    EXPECT_EQ(2U, standIn.journal().count(warning));
    EXPECT_EQ(2U, standIn.journal().count("zmq_socket 3"));
}

TEST_F(JammedRequest, ConnectsEveryEndpointAgain) {
    const socket::SocketEndpoint second = freshEndpoint(Transport::Ipc);
    client.connect(second, 5);
    standIn.journal().clear();

    sendText(client, "second");

    EXPECT_THAT(standIn.journal().linesWith("zmq_connect"),
                ElementsAre("zmq_connect " + address(), "zmq_connect " + second.toString(Protocol::Req)));
}

TEST_F(JammedRequest, IsTriedOnceMoreAndNoMore) {
    standIn.fail("zmq_send", EFSM, 1, 2);

    EXPECT_EQ("Send error: Operation cannot be accomplished in current state on [Socket cmd]",
              textThrownBy([&] { sendText(client, "second"); }));

    EXPECT_EQ(2U, standIn.journal().count("zmq_send"));
    EXPECT_EQ(1U, standIn.journal().count(warning));
    EXPECT_EQ(1U, standIn.journal().count("zmq_socket"));
}

TEST_F(JammedRequest, ReportsTheErrorOfTheSecondAttempt) {
    standIn.fail("zmq_send", EHOSTUNREACH, 2);

    EXPECT_EQ("Send error: Host unreachable on [Socket cmd]", textThrownBy([&] { sendText(client, "second"); }));
}

TEST_F(JammedRequest, ReportsATerminatedContextOfTheSecondAttempt) {
    standIn.fail("zmq_send", ETERM, 2);

    EXPECT_EQ("Context terminated in send() for socket [Socket cmd]",
              textThrownBy<ZmqContextTerminationException>([&] { sendText(client, "second"); }));
}

TEST_F(JammedRequest, StaysOpenAndConnectedWhenTheSecondAttemptFails) {
    standIn.fail("zmq_send", EAGAIN, 2);
    textThrownBy([&] { sendText(client, "second"); });

    sendText(client, "third");

    sendText(server, "answer to the first, which nobody awaits");
    EXPECT_EQ("third", receiveText(server));
}

TEST_F(JammedRequest, OtherErrorsRebuildNothing) {
    standIn.fail("zmq_send", EAGAIN);

    EXPECT_EQ("Send error: Resource temporarily unavailable on [Socket cmd]",
              textThrownBy([&] { sendText(client, "second"); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 6 bytes, flags 0"));
}

TEST_F(JammedRequest, ThatCannotBeRebuiltSendsOnANullHandleAndEndsClosed) {
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_EQ("Send error: Socket operation on non-socket on [Socket cmd]",
              textThrownBy([&] { sendText(client, "second"); }));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_send 6 bytes, flags 0", warning, "zmq_close", "zmq_socket 3",
                            "error: [Socket cmd]: Error resetting socket: Socket: Failed creating socket "
                            "[Socket cmd] of type 4: Too many open files on [Socket cmd]",
                            "zmq_send 6 bytes, flags 0"));
    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { sendText(client, "third"); }));
}

TEST_F(JammedRequest, ThatCannotBeConnectedAgainSendsOnANullHandleAndEndsClosed) {
    standIn.fail("zmq_connect", EINVAL);

    EXPECT_EQ("Send error: Socket operation on non-socket on [Socket cmd]",
              textThrownBy([&] { sendText(client, "second"); }));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_send 6 bytes, flags 0", warning, "zmq_close", "zmq_socket 3",
                            "debug: Connecting [Socket cmd], sending to " + address(), "zmq_connect " + address(),
                            "zmq_close",
                            "error: [Socket cmd]: Error resetting socket: Socket: Failed connecting/binding socket: "
                            "Invalid argument on [Socket cmd]",
                            "zmq_send 6 bytes, flags 0"));
    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { sendText(client, "third"); }));
}

TEST_F(JammedRequest, IsCountedOnceThoughItWasTriedTwice) {
    client.activateStatistics(true);
    standIn.setClock(100.0);

    for (int block = 1; block < 50; ++block) {
        sendText(client, "jammed");
    }
    EXPECT_EQ(0U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
    standIn.setClock(102.0);
    sendText(client, std::string(2097152 - 49 * 6, 'x'));

    EXPECT_EQ(100U, standIn.journal().count("zmq_send"));
    EXPECT_THAT(standIn.journal().linesWith("debug: [Socket cmd]: Rate is "),
                ElementsAre("debug: [Socket cmd]: Rate is 1.000000 Mbytes/s = 8.000000 Mbits/s, 25.000000 Blocks/s"));
}

TEST_F(JammedRequest, IsCountedOnceThoughBothAttemptsFail) {
    client.activateStatistics(true);
    standIn.fail("zmq_send", EFSM, 1, StandIn::always);

    for (int block = 1; block < 50; ++block) {
        textThrownBy([&] { sendText(client, "jammed"); });
    }
    EXPECT_EQ(0U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
    textThrownBy([&] { sendText(client, "jammed"); });

    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
}

TEST_F(JammedRequest, IsCappedOnceItIsSent) {
    client.setTargetBitRate(8);
    standIn.setClock(100.0);

    sendText(client, std::string(1048576, 'x'));
    EXPECT_THAT(standIn.journal().linesWith("usleep"), IsEmpty());
    sendText(client, std::string(1048576, 'x'));

    EXPECT_THAT(standIn.journal().linesWith("usleep"), ElementsAre("usleep 1000000"));
}

} // namespace rk::tests
