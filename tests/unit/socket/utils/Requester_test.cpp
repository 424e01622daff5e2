#include "support/Calls.h"
#include "support/FakeMessage.h"
#include "support/RemoteSocket.h"
#include "support/Signals.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/utils/Requester.h>

#include <zmq.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

using Unit = socket::utils::Requester;
using std::chrono::milliseconds;
using std::chrono::seconds;

static_assert(!std::is_copy_constructible_v<Unit>);
static_assert(!std::is_copy_assignable_v<Unit>);

constexpr milliseconds briefly{30};
constexpr seconds untilItArrives{1}; ///< also on a busy machine

Text textOf(const std::string& content) {
    Text message;
    message.set_text(content);
    return message;
}

std::string ask(Unit& requester, const std::string& question, milliseconds timeout = seconds(20),
                unsigned int attempts = 1) {
    Text reply;
    requester.request(textOf(question), reply, timeout, attempts);
    return reply.text();
}

class RequesterOver : public testing::TestWithParam<Transport::Transport> {
protected:
    std::string timeoutText(const char* timeout, const char* attempts) const {
        return "[Socket client]: No reply from " + endpoint.toString(Protocol::Req) + " within " + timeout +
               " ms, attempts made: " + attempts;
    }

    calls::Lines opening() const {
        const std::string address = endpoint.toString(Protocol::Req);
        return {"zmq_socket 3",
                calls::set(ZMQ_REQ_CORRELATE, 1),
                "debug: Connecting [Socket client], sending to " + address,
                "zmq_connect " + address,
                calls::set(ZMQ_LINGER, 0),
                "debug: Connected [Socket client]"};
    }

    const ContextOfTheProcess context;
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Unit requester{"client", endpoint};
};

INSTANTIATE_TEST_SUITE_P(Over, RequesterOver, everyTransport(), nameOfTransport);

/// A requester over ipc, and a server in another context.
class Requester : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Ipc);
    RemoteSocket server{ZMQ_ROUTER};
    Unit requester{"client", endpoint};

    Requester() { server.bind(endpoint); }

    /// Receives a request, drops it, and returns the frames before it.
    Frames receive() {
        Frames frames = server.receiveFrames();
        frames.pop_back();
        return frames;
    }

    void reply(const Frames& frames, const std::string& text) { replyWith(frames, {textOf(text).SerializeAsString()}); }

    void replyWith(Frames frames, const Frames& parts) {
        frames.insert(frames.end(), parts.begin(), parts.end());
        server.sendFrames(frames);
    }
};

} // namespace

TEST_P(RequesterOver, ReturnsTheReply) {
    NativeSocket server(Protocol::Rep, endpoint);
    standIn.journal().clear();
    auto serving = std::async(std::launch::async, [&] {
        for (int request = 0; request < 3; ++request) {
            server.send(server.receive());
        }
    });

    for (const std::string text : {"one", "two", "three"}) {
        EXPECT_EQ(text, ask(requester, text));
    }
    serving.get();
    EXPECT_EQ(1U, standIn.journal().count("zmq_socket"));
    EXPECT_EQ(standIn.journal().count("zmq_poll"), standIn.journal().count("zmq_poll 1 items, events 1, "));
    EXPECT_EQ(0U, standIn.journal().count("zmq_close"));
}

TEST_P(RequesterOver, RetriesUpToTheNumberOfAttempts) {
    using calls::operator+;
    NativeSocket server(Protocol::Rep, endpoint);
    standIn.journal().clear();
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_EQ(timeoutText("30", "3"), textThrownBy<TimeoutException>([&] { ask(requester, "anybody?", briefly, 3); }));

    EXPECT_LE(3 * briefly, std::chrono::steady_clock::now() - begin);
    calls::Lines expected;
    for (int attempt = 0; attempt < 3; ++attempt) {
        expected = expected + opening() + calls::Lines{"zmq_send 10 bytes, flags 1", "zmq_close"};
    }
    calls::Lines lines = standIn.journal().lines();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) {
                                   return line.rfind("zmq_poll", 0) == 0 || line.rfind("zmq_msg_recv", 0) == 0;
                               }),
                lines.end());
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

TEST_P(RequesterOver, TimesOutWithoutAServer) {
    EXPECT_EQ(timeoutText("1", "2"),
              textThrownBy<TimeoutException>([&] { ask(requester, "anybody?", milliseconds(1), 2); }));
}

/// On inproc, a request socket without a server blocks in its send.
TEST_P(RequesterOver, TimesOutWhenTheServerHasEnded) {
    auto server = std::make_unique<NativeSocket>(Protocol::Rep);
    server->bind(endpoint);
    auto serving = std::async(std::launch::async, [&] { server->send(server->receive()); });
    EXPECT_EQ("one", ask(requester, "one"));
    serving.get();
    server.reset();

    EXPECT_EQ(timeoutText("30", "1"), textThrownBy<TimeoutException>([&] { ask(requester, "two", briefly); }));
}

TEST_P(RequesterOver, RetriesWhenTheServerReturns) {
    EXPECT_THROW(ask(requester, "one", milliseconds(1)), TimeoutException);
    NativeSocket server(Protocol::Rep, endpoint);
    auto serving = std::async(std::launch::async, [&] {
        for (std::string request; request != textOf("two").SerializeAsString();) {
            request = server.receive(); // on inproc, the first request has waited for the bind
            server.send(request);
        }
    });

    EXPECT_EQ("two", ask(requester, "two"));
    serving.get();
}

TEST_F(Requester, DropsASecondReply) {
    auto serving = std::async(std::launch::async, [&] {
        const Frames first = receive();
        reply(first, "one");
        reply(first, "one again");
        const Frames second = receive();
        reply(first, "one once more");
        reply(second, "two");
    });

    EXPECT_EQ("one", ask(requester, "one"));
    EXPECT_EQ("two", ask(requester, "two"));
    serving.get();
    EXPECT_EQ(0U, standIn.journal().count("zmq_close"));
}

TEST_F(Requester, DropsALateReply) {
    auto serving = std::async(std::launch::async, [&] {
        const Frames first = receive();
        const Frames second = receive();
        reply(first, "late");
        reply(second, "in time");
    });

    Text reply;
    EXPECT_THROW(requester.request(textOf("one"), reply, untilItArrives), TimeoutException);
    EXPECT_EQ("in time", ask(requester, "one"));
    serving.get();
}

TEST_F(Requester, KeepsItsDeadlineAmongWrongReplies) {
    std::atomic<bool> over{false};
    auto serving = std::async(std::launch::async, [&] {
        const Frames first = receive();
        reply(first, "one");
        receive();
        while (!over) {
            reply(first, "one again");
        }
    });

    EXPECT_EQ("one", ask(requester, "one"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(ask(requester, "two", untilItArrives), TimeoutException);
    EXPECT_GT(seconds(10), std::chrono::steady_clock::now() - begin);
    over = true;
    serving.get();
}

TEST_F(Requester, ReceivesAReplyOfAnySize) {
    const std::string large(3000000, 'x');
    auto serving = std::async(std::launch::async, [&] {
        reply(receive(), large);
        replyWith(receive(), {""});
    });

    EXPECT_EQ(large, ask(requester, "one"));
    EXPECT_EQ("", ask(requester, "two"));
    serving.get();
}

TEST_F(Requester, RejectsRepliesThatAreNotOneMessage) {
    auto serving = std::async(std::launch::async, [&] {
        replyWith(receive(), {"\xff\xff\xff"});
        replyWith(receive(), {"", "second part"});
        reply(receive(), "three");
    });

    for (int refused = 0; refused < 2; ++refused) {
        EXPECT_EQ("[Socket client]: Failed deserializing message", textThrownBy([&] { ask(requester, "?"); }));
    }
    EXPECT_EQ("three", ask(requester, "?"));
    serving.get();
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
}

TEST_F(Requester, WaitsThroughSignals) {
    auto serving = std::async(std::launch::async, [&] {
        const Frames request = receive();
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll", 5));
        reply(request, "one");
    });

    interrupt([&] { EXPECT_EQ("one", ask(requester, "one")); });
    serving.get();
}

TEST_P(RequesterOver, TimesOutWhenItCannotSend) {
    standIn.fail("zmq_send", EAGAIN, 1, StandIn::always);

    EXPECT_EQ(timeoutText("30", "2"), textThrownBy<TimeoutException>([&] { ask(requester, "one", briefly, 2); }));
}

TEST_F(Requester, RetriesInterruptedCalls) {
    auto serving = std::async(std::launch::async, [&] { reply(receive(), "one"); });
    standIn.fail("zmq_send", EINTR);
    standIn.fail("zmq_msg_recv", EINTR, 1, 3);
    standIn.fail("zmq_poll", EFAULT, 1, 4);

    EXPECT_EQ("one", ask(requester, "one"));
    serving.get();
}

TEST_F(Requester, WaitsUntilItCanSend) {
    auto serving = std::async(std::launch::async, [&] { reply(receive(), "one"); });
    standIn.fail("zmq_send", EAGAIN);

    EXPECT_EQ("one", ask(requester, "one"));
    serving.get();
    EXPECT_EQ(1U, standIn.journal().count("zmq_poll 1 items, events 2, "));
}

TEST_F(Requester, HoldsSignalsBackWhileConnecting) {
    sigset_t fault;
    sigemptyset(&fault);
    sigaddset(&fault, SIGTRAP);
    const BlockedSignals blocked(fault);
    std::vector<int> duringConnect;
    standIn.after("zmq_connect", [&] { duringConnect = blockedSignals(); });

    EXPECT_THROW(ask(requester, "one", milliseconds(1)), TimeoutException);

    EXPECT_THAT(duringConnect, testing::IsSupersetOf({SIGINT, SIGTERM, SIGALRM, SIGTRAP}));
    EXPECT_THAT(blockedSignals(), ElementsAre(SIGTRAP));
}

TEST_F(Requester, TakesTheLongestTimeout) {
    auto serving = std::async(std::launch::async, [&] { reply(receive(), "one"); });

    EXPECT_EQ("one", ask(requester, "one", milliseconds::max()));
    serving.get();
    EXPECT_EQ(0U, standIn.journal().count("zmq_poll 1 items, events 1, -"));
}

TEST_F(Requester, ThrowsWhenTheProcessExits) {
    standIn.fail("zmq_msg_recv", ETERM);
    EXPECT_EQ("Context terminated in recv() for socket [Socket client]",
              textThrownBy<ZmqContextTerminationException>([&] { ask(requester, "one"); }));
    standIn.fail("zmq_send", ETERM);
    EXPECT_EQ("Context terminated in send() for socket [Socket client]",
              textThrownBy<ZmqContextTerminationException>([&] { ask(requester, "one"); }));
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
}

TEST_F(Requester, SendsNothingWithoutCorrelation) {
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_REQ_CORRELATE), EINVAL);

    EXPECT_EQ("Socket: Error setting ZMQ_REQ_CORRELATE Invalid argument on [Socket client]",
              textThrownBy([&] { ask(requester, "one"); }));

    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
    EXPECT_EQ(0U, standIn.journal().count("zmq_send"));
}

TEST_F(Requester, ThrowsWhenACallFails) {
    standIn.fail("zmq_connect", EINVAL);
    EXPECT_EQ("Socket: Failed connecting/binding socket: Invalid argument on [Socket client]",
              textThrownBy([&] { ask(requester, "one"); }));
    standIn.fail("zmq_send", EHOSTUNREACH);
    EXPECT_EQ("Send error: Host unreachable on [Socket client]", textThrownBy([&] { ask(requester, "one"); }));
    standIn.fail("zmq_msg_recv", EHOSTUNREACH);
    EXPECT_EQ("Receive error: Host unreachable on [Socket client]", textThrownBy([&] { ask(requester, "one"); }));
}

TEST_F(Requester, RejectsZeroAttemptsAndZeroTime) {
    for (const auto& limits :
         {std::pair(milliseconds(0), 1U), std::pair(milliseconds(-1), 1U), std::pair(milliseconds(1), 0U)}) {
        EXPECT_EQ("[Socket client]: A request needs an attempt of at least 1 ms",
                  textThrownBy<std::invalid_argument>([&] { ask(requester, "one", limits.first, limits.second); }));
    }
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_F(Requester, RejectsUnserializableRequests) {
    Text reply;
    EXPECT_EQ("[Socket client]: Cannot send message: not initialized: [id][header]",
              textThrownBy([&] { requester.request(Command(), reply, seconds(20)); }));
    EXPECT_EQ("[Socket client]: Cannot send message: 2147483648 bytes serialized, at most 2147483647 possible",
              textThrownBy([&] { requester.request(FakeMessage(2147483648UL, 7), reply, seconds(20)); }));
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

} // namespace rk::tests
