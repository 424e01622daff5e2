#pragma once

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <thread>
#include <vector>

namespace rk::tests {

inline std::vector<int> signalsIn(const sigset_t& set) {
    std::vector<int> signals;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&set, signal) == 1) {
            signals.push_back(signal);
        }
    }
    return signals;
}

/// Returns the signals that the calling thread blocks.
inline std::vector<int> blockedSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return signalsIn(mask);
}

/// Returns the signals that are pending for the calling thread or for the process.
inline std::vector<int> pendingSignals() {
    sigset_t pending;
    sigpending(&pending);
    return signalsIn(pending);
}

/// Blocks signals on the calling thread during its lifetime.
class BlockedSignals {
public:
    explicit BlockedSignals(const sigset_t& signals) { pthread_sigmask(SIG_BLOCK, &signals, &former); }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t former{};
};

/// Installs an empty handler for a signal during its lifetime. The signal interrupts system calls.
class SignalTaker {
public:
    explicit SignalTaker(int signalNumber) : number(signalNumber) {
        struct sigaction taker = {};
        taker.sa_handler = [](int) {};
        sigaction(number, &taker, &former);
    }
    ~SignalTaker() {
        // Ignoring a signal discards pending ones.
        std::signal(number, SIG_IGN);
        sigaction(number, &former, nullptr);
    }
    SignalTaker(const SignalTaker&) = delete;
    SignalTaker& operator=(const SignalTaker&) = delete;

private:
    int number;
    struct sigaction former = {};
};

/// Runs the blocking `action` in a thread and interrupts it with signals until it ends. The system does not restart the
/// calls of the thread.
template <class Action>
void interrupt(const Action& action) {
    const SignalTaker taker(SIGUSR1);
    std::atomic<bool> ended{false};
    std::thread thread([&] {
        action();
        ended = true;
    });
    while (!ended) {
        pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    thread.join();
}

} // namespace rk::tests
