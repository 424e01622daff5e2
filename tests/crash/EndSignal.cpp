#include "crash/EndSignal.h"

#include <csignal>

namespace rk::tests::crash {

namespace {

sigset_t endSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    return signals;
}

} // namespace

void blockEndSignal() {
    const sigset_t signals = endSignal();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool isAskedToEndWithin(std::chrono::milliseconds time) {
    const sigset_t signals = endSignal();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - seconds);
    const timespec limit{seconds.count(), rest.count()};
    return sigtimedwait(&signals, nullptr, &limit) == SIGTERM;
}

void waitForEndSignal() {
    while (!isAskedToEndWithin(std::chrono::hours(1))) {
    }
}

} // namespace rk::tests::crash
