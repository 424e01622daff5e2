#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/Signals.h"
#include "support/ThreadFaults.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sys/mman.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace rk::tests {

namespace {

using testing::Contains;
using testing::Not;

sigset_t setOf(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

std::vector<int> everySignalThatCanBeBlocked() {
    sigset_t all;
    sigfillset(&all);
    const BlockedSignals block(all);
    return blockedSignals();
}

std::vector<int> without(const std::vector<int>& left, std::vector<int> signals) {
    const auto isLeft = [&](int signal) { return std::find(left.begin(), left.end(), signal) != left.end(); };
    signals.erase(std::remove_if(signals.begin(), signals.end(), isLeft), signals.end());
    return signals;
}

/// Raises a signal on the calling thread as a processor fault does: a blocked signal kills the process.
void raiseAsTheProcessorDoes(int fault) {
    if (fault == SIGSEGV) {
        *static_cast<volatile char*>(mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) = 1;
    }
    pthread_kill(pthread_self(), fault);
}

class ListenerSignals : public ListenerTest {
protected:
    ListenerSignals() : ListenerTest(Transport::Tcp) {}

    const SignalTaker taker{SIGUSR1};
};

} // namespace

TEST_F(ListenerSignals, BlockAsynchronousOnes) {
    const std::vector<int> faults{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};
    std::vector<int> whenMaking;
    std::vector<int> whenReceiving;
    std::vector<int> whenHandling;
    standIn.after("zmq_recv", [&] { whenReceiving = blockedSignals(); });
    listener.setMaker([&] {
        whenMaking = blockedSignals();
        return std::make_shared<Text>();
    });
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        whenHandling = blockedSignals();
        echo(text, socket);
    });
    {
        const BlockedSignals block(setOf(SIGSEGV)); // which the listener's thread must not inherit
        listener.serve(endpoint);
    }
    NativeSocket client(Protocol::Req, endpoint); // whose calls the journal does not record
    client.send("");
    client.receive();
    ASSERT_TRUE(listener.stop(error));

    const std::vector<int> all = everySignalThatCanBeBlocked();
    EXPECT_EQ(without(faults, all), whenMaking);
    EXPECT_EQ(whenMaking, whenReceiving);
    EXPECT_EQ(without({SIGPROF}, without(faults, all)), whenHandling);
}

TEST_F(ListenerSignals, DeliverFaults) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        EXPECT_EXIT(
            {
                struct sigaction crash{};
                crash.sa_handler = [](int number) { _exit(number); };
                sigaction(fault, &crash, nullptr);
                listener.setHandler([fault](Text&, const std::shared_ptr<Socket>&) { raiseAsTheProcessorDoes(fault); });
                listener.serve(endpoint);
                ask(endpoint, "question");
            },
            testing::ExitedWithCode(fault), "");
    }
}

TEST_F(ListenerSignals, SurviveAStormOfSigprof) {
    std::atomic<pthread_t> thread{};
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        thread = pthread_self();
        const BlockedSignals block(setOf(SIGPROF)); // a signal could interrupt the reply
        echo(text, socket);
    });
    const SignalTaker profiling{SIGPROF};
    listener.serve(endpoint);
    ask(endpoint, "question");
    std::atomic<bool> over{false};
    std::thread storm([&] {
        while (!over) {
            pthread_kill(thread, SIGPROF);
        }
    });

    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ("question", ask(endpoint, "question"));
    }

    over = true;
    storm.join();
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(ListenerSignals, KeepTheStartersMask) {
    const BlockedSignals block(setOf(SIGUSR2));
    const std::vector<int> before = blockedSignals();
    ASSERT_THAT(before, Contains(SIGUSR2));
    ASSERT_THAT(before, Not(Contains(SIGUSR1)));

    listener.serve(endpoint);
    EXPECT_EQ(before, blockedSignals());
    EXPECT_TRUE(listener.addListenEndpoint("inproc://signals", error));
    EXPECT_EQ(before, blockedSignals());
    EXPECT_TRUE(listener.stop(error));
    EXPECT_EQ(before, blockedSignals());
}

TEST_F(ListenerSignals, KeepTheMaskWhenStartThrows) {
    const BlockedSignals block(setOf(SIGUSR2));
    const std::vector<int> before = blockedSignals();
    const ThreadFault fault(EAGAIN);

    EXPECT_THROW(listener.start(error), std::system_error);

    EXPECT_EQ(before, blockedSignals());
}

TEST_F(ListenerSignals, StayWithTheApplication) {
    listener.serve(endpoint);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    // This thread blocks them, so only the listener's thread could receive them.
    const sigset_t signals = setOf(SIGUSR1);
    const BlockedSignals block(signals);
    const timespec patience{20, 0};
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(0, kill(getpid(), SIGUSR1));
        ASSERT_EQ(SIGUSR1, sigtimedwait(&signals, nullptr, &patience));
    }
    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
