#include "SteadyClock.h"

#include "Caller.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <mutex>
#include <optional>
#include <utility>

namespace rk::tests {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

std::mutex mutex;
std::optional<nanoseconds> clockOfTheTest;
nanoseconds ahead{0}; // of the system's, by what tests have advanced it: it never goes back
std::vector<nanoseconds> pauses;

nanoseconds lengthOf(const timespec& time) {
    return seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

nanoseconds clockOfTheSystem() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return lengthOf(now);
}

nanoseconds clockOf(const void* caller) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!isInLibrary(caller)) {
        return clockOfTheSystem();
    }
    if (!clockOfTheTest) {
        return clockOfTheSystem() + ahead;
    }
    errno = EINTR; // which no function promises to leave alone
    return *clockOfTheTest;
}

bool pauseInTheTest(const timespec& time, const void* caller) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!clockOfTheTest || !isInLibrary(caller)) {
        return false;
    }
    *clockOfTheTest += lengthOf(time);
    pauses.push_back(lengthOf(time));
    return true;
}

} // namespace

SteadyClock::SteadyClock() {
    const std::lock_guard<std::mutex> lock(mutex);
    clockOfTheTest = clockOfTheSystem() + ahead;
}

SteadyClock::~SteadyClock() {
    const std::lock_guard<std::mutex> lock(mutex);
    ahead = std::max(ahead, *clockOfTheTest - clockOfTheSystem());
    clockOfTheTest.reset();
    pauses.clear();
}

void SteadyClock::advance(nanoseconds time) {
    const std::lock_guard<std::mutex> lock(mutex);
    *clockOfTheTest += time;
}

std::vector<nanoseconds> SteadyClock::takePauses() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(pauses, {});
}

} // namespace rk::tests

/// Stands in front of the standard library's function of this name.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(rk::tests::clockOf(__builtin_return_address(0)));
}

/// Stands in front of the C library's function of this name, in which a thread's sleep ends.
extern "C" int nanosleep(const timespec* time, timespec* left) {
    static auto* const real = reinterpret_cast<decltype(nanosleep)*>(dlsym(RTLD_NEXT, "nanosleep"));
    return rk::tests::pauseInTheTest(*time, __builtin_return_address(0)) ? 0 : real(time, left);
}
