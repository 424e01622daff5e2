#include "support/Endpoints.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <tuple>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
using Clock = std::chrono::steady_clock;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

const std::string warning =
    "warning: [Socket service] Attempting reset of the connections to preserve 0MQ state machine integrity";

const std::string connected = "debug: Connected [Socket service]";

/// Well below the second that the listener's poll lasts.
constexpr std::chrono::milliseconds atOnce{700};

/// A way of never replying: what the handler does, and what the request is.
struct Silence {
    const char* name;
    RecordingListener::Handler handler;
    std::string request;
};

void PrintTo(const Silence& silence, std::ostream* stream) {
    *stream << silence.name;
}

const Silence handlerReturns{"HandlerReturns", [](Text&, const std::shared_ptr<Socket>&) {}, ""};
const Silence handlerThrows{"HandlerThrows",
                            [](Text&, const std::shared_ptr<Socket>&) { throw std::runtime_error("no luck"); }, ""};
const Silence requestDoesNotParse{"RequestDoesNotParse", echo, "\xff"};
const Silence requestIsTooLong{"RequestIsTooLong", echo, std::string(131073, 'x')};

class UnansweredRequest : public testing::TestWithParam<std::tuple<Transport::Transport, Silence>> {
protected:
    void SetUp() override { listener.serve(endpoint); }

    /// Comes back when the listener's socket is rebuilt: what comes in until then is lost with the old one.
    void sendARequestThatIsNotAnswered(NativeSocket& client) {
        const std::size_t connectedBefore = standIn.journal().count(connected);
        listener.setHandler(std::get<Silence>(GetParam()).handler);
        client.send(std::get<Silence>(GetParam()).request);
        ASSERT_TRUE(standIn.journal().waitFor(connected, connectedBefore + 1));
        listener.setHandler(echo);
    }

    /// Asks until there is a reply: what is sent before the client has noticed the rebuild is lost.
    std::string askPatiently(Socket& client, const std::string& question) {
        Text text;
        for (const Clock::time_point start = Clock::now(); Clock::now() - start < std::chrono::seconds(20);) {
            text.set_text(question);
            client.sendProtoBuf(&text);
            if (client.poll(300, error) == socket::PollResult::Input) {
                client.receiveProtoBuf(&text, 1000);
                return text.text();
            }
        }
        return "no reply";
    }

    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    const SocketEndpoint endpoint = freshEndpoint(std::get<Transport::Transport>(GetParam()));
    std::string error;
};

std::string caseName(const testing::TestParamInfo<UnansweredRequest::ParamType>& info) {
    return Transport::ToString(std::get<Transport::Transport>(info.param)) + std::get<Silence>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(On, UnansweredRequest,
                         testing::Combine(testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                                          testing::Values(handlerReturns, handlerThrows, requestDoesNotParse,
                                                          requestIsTooLong)),
                         caseName);

} // namespace

TEST_P(UnansweredRequest, IsAbandonedWithOneWarningAndANewClientIsAnsweredAtOnce) {
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    sendARequestThatIsNotAnswered(client);
    const Clock::time_point start = Clock::now();

    EXPECT_EQ("question", ask(endpoint, "question"));

    EXPECT_LT(Clock::now() - start, atOnce);
    EXPECT_EQ(1U, standIn.journal().count("warning: "));
    EXPECT_EQ(0U, standIn.journal().count("error: [Socket service]"));
}

TEST_P(UnansweredRequest, DelaysNoStopThoughNoOtherRequestEverComes) {
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    sendARequestThatIsNotAnswered(client);
    const Clock::time_point start = Clock::now();

    EXPECT_TRUE(listener.stop(error));

    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1500));
}

TEST_P(UnansweredRequest, IsAbandonedHoweverOftenItComes) {
    for (int round = 0; round < 50; ++round) {
        NativeSocket client(Protocol::Req);
        client.connect(endpoint);
        ASSERT_NO_FATAL_FAILURE(sendARequestThatIsNotAnswered(client)) << "round " << round;
    }
    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(50U, standIn.journal().count("warning: "));
}

TEST_P(UnansweredRequest, LeavesTheOtherClientsServed) {
    if (std::get<Transport::Transport>(GetParam()) == Transport::Inproc) {
        GTEST_SKIP() << "an inproc peer does not connect again by itself";
    }
    Socket other("other", socket::ClosePolicy::DropPending);
    other.createAndConnect(Protocol::Req, endpoint, 0);
    EXPECT_EQ("before", askPatiently(other, "before"));
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    sendARequestThatIsNotAnswered(client);

    EXPECT_EQ("after", askPatiently(other, "after"));
}

namespace {

class Repair : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    std::string error;
};

} // namespace

TEST_F(Repair, IsSparedAHandlerThatRepliesAndThenThrows) {
    listener.setHandler([](Text& text, const std::shared_ptr<Socket>& socket) {
        echo(text, socket);
        throw std::runtime_error("too late");
    });
    listener.serve(endpoint);

    EXPECT_EQ("one", ask(endpoint, "one"));
    EXPECT_EQ("two", ask(endpoint, "two"));

    EXPECT_TRUE(
        standIn.journal().waitFor("error: [Socket Listener rep] Failed handling received message: too late", 2));
    ASSERT_TRUE(listener.stop(error));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    EXPECT_EQ(1U, standIn.journal().count("zmq_socket 4"));
}

TEST_F(Repair, MakesTheCallsInOrder) {
    // On ipc no bind is ever refused and made again.
    const SocketEndpoint path = freshEndpoint(Transport::Ipc);
    const std::string address = path.toString(Protocol::Rep);
    listener.setHandler([](Text&, const std::shared_ptr<Socket>&) {});
    listener.serve(path);
    NativeSocket client(Protocol::Req);
    client.connect(path);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    standIn.journal().clear();

    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms"));
    ASSERT_TRUE(listener.stop(error));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_recv 131072 bytes, flags 0", "zmq_poll 1 items, events 3, 0 ms", warning, "zmq_close",
                            "zmq_socket 4", "debug: Connecting [Socket service], listening on " + address,
                            "zmq_bind " + address, "chmod " + path.address + " 777", "zmq_setsockopt 17 = 0 (4 bytes)",
                            "debug: Connected [Socket service]", "zmq_poll 1 items, events 1, 1000 ms", "zmq_close"));
}

TEST_F(Repair, ThatFailsEndsTheThread) {
    listener.setHandler([this](Text&, const std::shared_ptr<Socket>&) { standIn.fail("zmq_socket", EMFILE); });
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);

    client.send("");

    ASSERT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep]"));
    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket service]: Error resetting socket: Socket: Failed creating socket [Socket "
                            "service] of type 3: Too many open files on [Socket service]",
                            "error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL socket. "
                            "Aborting listener thread."));
}

TEST_F(Repair, IsLeftToTheHandlerThatClosesTheSocket) {
    listener.setHandler([](Text&, const std::shared_ptr<Socket>& socket) { socket->close(); });
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);

    client.send("");

    EXPECT_TRUE(
        standIn.journal().waitFor("error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL "
                                  "socket. Aborting listener thread."));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
}

TEST_F(Repair, ThatCannotBeDecidedEndsTheThreadLikeAFailingPoll) {
    listener.setHandler([this](Text& text, const std::shared_ptr<Socket>& socket) {
        standIn.fail("zmq_poll", EFAULT);
        echo(text, socket);
    });
    listener.serve(endpoint);
    EXPECT_EQ("question", ask(endpoint, "question"));

    EXPECT_TRUE(
        standIn.journal().waitFor("error: [Socket Listener rep] Poll error on socket. Aborting listener thread."));
}

TEST_F(Repair, ThatTheEndOfTheContextComesBeforeEndsTheThread) {
    listener.setHandler([this](Text& text, const std::shared_ptr<Socket>& socket) {
        standIn.fail("zmq_poll", ETERM);
        echo(text, socket);
    });
    listener.serve(endpoint);
    EXPECT_EQ("question", ask(endpoint, "question"));

    EXPECT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep] Failed reading socket: Context terminated in "
                                          "poll() for socket [Socket service]. Aborting listener thread."));
}

} // namespace rk::tests
