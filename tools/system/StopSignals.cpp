#include "system/StopSignals.h"

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

extern "C" void rkToolsOnSignal(int signal) {
    const int error = errno;
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
    // Not restarted: what waits has to wake up. Reset: the second one ends what does not.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
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
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec limit{seconds.count(), (left - seconds).count()};
        pollfd item{wakeUp, POLLIN, 0};
        ::ppoll(&item, 1, &limit, nullptr);
    }
    return !requested();
}

int StopSignals::descriptor() const {
    return wakeUp;
}

} // namespace rk::tools
