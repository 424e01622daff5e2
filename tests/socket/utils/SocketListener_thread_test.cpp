#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/RecordingListener.h"
#include "support/StandIn.h"
#include "support/ThreadFault.h"
#include "support/ZmqHandle.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <pthread.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

std::vector<int> signalsBlockedHere() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::vector<int> blocked;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&mask, signal) == 1) {
            blocked.push_back(signal);
        }
    }
    return blocked;
}

std::vector<int> signalsThatCanBeBlocked() {
    sigset_t former;
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    std::vector<int> blocked = signalsBlockedHere();
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return blocked;
}

/// Takes a signal by doing nothing, and lets no system call start again, for as long as it lives.
class SignalTaker {
public:
    explicit SignalTaker(int signalNumber) : number(signalNumber) {
        struct sigaction taker {};
        taker.sa_handler = [](int) {};
        sigaction(number, &taker, &former);
    }
    ~SignalTaker() { sigaction(number, &former, nullptr); }
    SignalTaker(const SignalTaker&) = delete;
    SignalTaker& operator=(const SignalTaker&) = delete;

private:
    int number;
    struct sigaction former {};
};

std::ptrdiff_t entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

class ListenerThread : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    std::string error;
};

} // namespace

TEST_F(ListenerThread, BlocksAllSignalsAndLeavesTheCallersAsTheyWere) {
    const std::vector<int> before = signalsBlockedHere();
    std::vector<int> blocked;
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        blocked = signalsBlockedHere();
        echo(text, socket);
    });

    listener.serve(endpoint);

    EXPECT_EQ(before, signalsBlockedHere());
    ask(endpoint, "question");
    ASSERT_TRUE(listener.stop(error));
    EXPECT_EQ(signalsThatCanBeBlocked(), blocked);
}

TEST_F(ListenerThread, IsNotEndedByAStormOfSignals) {
    const SignalTaker taker(SIGUSR1);
    listener.serve(endpoint);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));

    for (int round = 0; round < 10000; ++round) {
        ASSERT_EQ(0, kill(getpid(), SIGUSR1));
    }

    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(ListenerThread, ThatCannotBeMadeLeavesTheListenerStoppedAndReadyForAnotherStart) {
    const std::vector<int> before = signalsBlockedHere();
    ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Req), error));
    {
        const ThreadFault fault(EAGAIN);
        EXPECT_EQ("Resource temporarily unavailable", textThrownBy<std::system_error>([&] { listener.start(error); }));
    }
    EXPECT_EQ(before, signalsBlockedHere());
    EXPECT_EQ(1U, standIn.journal().count("zmq_close"));

    ASSERT_TRUE(listener.start(error)) << error;

    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerThread, LeavesNoThreadAndNoDescriptorBehind) {
    listener.serve(endpoint);
    ask(endpoint, "question");
    ASSERT_TRUE(listener.stop(error));
    const std::ptrdiff_t threads = entriesOf("/proc/self/task");

    for (int round = 0; round < 10; ++round) {
        RecordingListener other(Protocol::Rep);
        other.serve(freshEndpoint(Transport::Inproc));
    }

    EXPECT_EQ(threads, entriesOf("/proc/self/task"));
    EXPECT_EQ(standIn.journal().count("zmq_socket"), standIn.journal().count("zmq_close"));
}

} // namespace rk::tests
