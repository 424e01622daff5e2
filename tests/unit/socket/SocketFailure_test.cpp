#include "support/Feed.h"
#include "support/Signals.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <ostream>

// Failures that all operations on messages report in the same way.

namespace rk::tests {

namespace {

struct Operation {
    const char* name;
    const char* function;  ///< ZeroMQ's function
    const char* line;      ///< its line in the journal
    const char* errorText; ///< precedes ZeroMQ's message
    const char* closedText;
    const char* terminated; ///< the function that the message of a terminated context names
    bool sends;
    void (*call)(Socket&);
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

void poll(Socket& socket) {
    std::string error = "as it was";
    PollResult::PollResult result = PollResult::Input;
    try {
        result = socket.poll(patienceMs, error);
    } catch (...) {
        EXPECT_EQ("as it was", error);
        throw;
    }
    EXPECT_EQ(result == PollResult::Failure, error != "as it was");
    if (result == PollResult::Failure) {
        throw std::runtime_error(error);
    }
}

void sendMessage(Socket& socket) {
    Text text;
    text.set_text("news");
    socket.sendProtoBuf(&text);
}

void receiveMessage(Socket& socket) {
    Text text;
    socket.receiveProtoBuf(&text, 256);
}

const Operation everyOperation[] = {
    {"send", "zmq_send", "zmq_send 4 bytes, flags 0", "Send error: ", "Socket: Cannot send on a NULL socket", "send()",
     true, [](Socket& socket) { sendText(socket, "news"); }},
    {"sendProtoBuf", "zmq_send", "zmq_send 6 bytes, flags 0", "Send error: ", "Socket: Cannot send on a NULL socket",
     "send()", true, sendMessage},
    {"receive", "zmq_recv", "zmq_recv 256 bytes, flags 0", "Receive error: ", "Socket: Cannot receive on a NULL socket",
     "recv()", false, [](Socket& socket) { receiveText(socket); }},
    {"receiveProtoBuf", "zmq_recv", "zmq_recv 256 bytes, flags 0",
     "Receive error: ", "Socket: Cannot receive on a NULL socket", "recv()", false, receiveMessage},
    {"poll", "zmq_poll", "zmq_poll 1 items, events 1, 20000 ms", "", "Socket: Cannot poll a NULL socket", "poll()",
     false, poll},
};

class SocketFailure : public testing::TestWithParam<Operation> {
protected:
    SocketFailure() { standIn.journal().clear(); }

    void call() { GetParam().call(socket); }
    std::string textOf(const std::string& reason) const { return GetParam().errorText + reason + " on " + header; }

    StandIn standIn;
    Feed feed;
    Socket& socket = GetParam().sends ? feed.publisher : feed.subscriber;
    const std::string header = socket.debugString();
};

INSTANTIATE_TEST_SUITE_P(Of, SocketFailure, testing::ValuesIn(everyOperation),
                         [](const auto& tested) { return std::string(tested.param.name); });

} // namespace

TEST_P(SocketFailure, MakesOnlyOneCall) {
    sendMessage(feed.publisher);
    standIn.journal().clear();

    call();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre(GetParam().line));
}

TEST_P(SocketFailure, ThrowsTheErrorAtOnce) {
    const std::pair<int, const char*> errors[] = {{EINTR, "Interrupted system call"},
                                                  {EFSM, "Operation cannot be accomplished in current state"},
                                                  {EHOSTUNREACH, "Host unreachable"},
                                                  {ENOTSUP, "Operation not supported"},
                                                  {EFAULT, "Bad address"}};
    for (const auto& [error, reason] : errors) {
        standIn.fail(GetParam().function, error);
        EXPECT_EQ(textOf(reason), textThrownBy([&] { call(); }));
        EXPECT_THAT(standIn.journal().lines(), ElementsAre(GetParam().line));
        standIn.journal().clear();
    }
    sendMessage(feed.publisher);
    EXPECT_NO_THROW(call());
}

TEST_P(SocketFailure, ReportsATerminatedContext) {
    standIn.fail(GetParam().function, ETERM);

    EXPECT_EQ("Context terminated in " + std::string(GetParam().terminated) + " for socket " + header,
              textThrownBy<ZmqContextTerminationException>([&] { call(); }));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre(GetParam().line));
}

TEST_P(SocketFailure, ThrowsOnAClosedSocket) {
    socket.activateStatistics(true);
    socket.setTargetBitRate(1);
    socket.close();
    standIn.journal().clear();
    Socket never("never", ClosePolicy::DropPending);

    for (int block = 0; block < 50; ++block) {
        EXPECT_EQ(GetParam().closedText, textThrownBy([&] { call(); }));
        EXPECT_EQ(GetParam().closedText, textThrownBy([&] { GetParam().call(never); }));
    }
    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
}

TEST_P(SocketFailure, ThrowsWhenASignalInterrupts) {
    Socket alone("alone", ClosePolicy::DropPending);
    alone.create(GetParam().sends ? Protocol::Req : Protocol::Sub);
    std::string text;
    standIn.journal().clear();

    interrupt([&] { text = textThrownBy([&] { GetParam().call(alone); }); });

    EXPECT_EQ(GetParam().errorText + std::string("Interrupted system call on [Socket alone]"), text);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre(GetParam().line));
}

TEST_P(SocketFailure, CountsOnlyFailedSends) {
    socket.activateStatistics(true);
    socket.setTargetBitRate(1);
    standIn.setClock(100.0);
    standIn.fail(GetParam().function, EINTR, 1, StandIn::always);

    for (std::size_t block = 1; block <= 100; ++block) {
        textThrownBy([&] { call(); });
        EXPECT_EQ(GetParam().sends ? block / 50 : 0U, standIn.journal().count("debug: "));
    }
    EXPECT_EQ(GetParam().sends ? 4U : 0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, standIn.journal().count("usleep"));
}

} // namespace rk::tests
