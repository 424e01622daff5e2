#pragma once

#include <csignal>
#include <initializer_list>
#include <pthread.h>

namespace rk::detail {

/// Returns every signal except the synchronous ones, which a fault raises on the thread that runs the faulty code.
inline sigset_t asynchronousSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
        sigdelset(&signals, fault);
    }
    return signals;
}

/// Changes the signal mask of the calling thread and restores it on scope exit.
class SignalMask {
public:
    SignalMask(int how, const sigset_t& signals) { pthread_sigmask(how, &signals, &previous); }
    ~SignalMask() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    SignalMask(const SignalMask&) = delete;
    SignalMask& operator=(const SignalMask&) = delete;

private:
    sigset_t previous{};
};

} // namespace rk::detail
