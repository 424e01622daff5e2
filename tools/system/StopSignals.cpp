#include "system/StopSignals.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <unistd.h>

namespace rk::tools {

namespace {

volatile std::sig_atomic_t received = 0;
int wakeUp = -1;
std::int64_t firstTime = 0; // in nanoseconds

// timeout and other supervisors send a signal twice, to the process and to its group.
constexpr std::int64_t grace = 1000000000;

std::int64_t monotonicTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1000000000} + now.tv_nsec;
}

extern "C" void rkToolsOnSignal(int signal) {
    const int error = errno;
    if (received != 0 && monotonicTime() - firstTime >= grace) {
        std::signal(signal, SIG_DFL);
        static_cast<void>(std::raise(signal)); // delivered on return from this handler
    }
    if (received == 0) {
        firstTime = monotonicTime();
    }
    received = signal;
    const std::uint64_t one = 1;
    static_cast<void>(!::write(wakeUp, &one, sizeof one));
    errno = error;
}

} // namespace

StopSignals::StopSignals() {
    received = 0;
    wakeUp = ::eventfd(0, EFD_CLOEXEC);
    if (wakeUp < 0) {
        throw std::runtime_error("cannot make an event descriptor");
    }
    struct sigaction action = {};
    action.sa_handler = rkToolsOnSignal;
    // Neither signal interrupts the handler of the other.
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

StopSignals::~StopSignals() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    ::close(wakeUp);
}

bool StopSignals::requested() const {
    return received != 0;
}

int StopSignals::signal() const {
    return received;
}

bool StopSignals::sleepUntil(Clock::time_point time) const {
    for (auto left = time - Clock::now(); left > Clock::duration::zero() && !requested(); left = time - Clock::now()) {
        // Types of timespec, which may have 32 bits.
        using Seconds = std::chrono::duration<std::time_t>;
        using Nanoseconds = std::chrono::duration<long, std::nano>;
        const auto wait = std::min<Clock::duration>(left, std::chrono::hours(1));
        const auto seconds = std::chrono::duration_cast<Seconds>(wait);
        const timespec limit{seconds.count(), std::chrono::duration_cast<Nanoseconds>(wait - seconds).count()};
        pollfd item{wakeUp, POLLIN, 0};
        ::ppoll(&item, 1, &limit, nullptr);
    }
    return !requested();
}

int StopSignals::descriptor() const {
    return wakeUp;
}

} // namespace rk::tools
