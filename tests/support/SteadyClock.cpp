#include "SteadyClock.h"

#include "Caller.h"
#include "Immortal.h"
#include "interpose/Interpose.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <optional>
#include <utility>

namespace rk::tests {

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

std::mutex mutex;
std::optional<nanoseconds> clockOfTheTest;
nanoseconds ahead{0}; // of the system's clock, by the sum of all advances, so that time never goes back
std::vector<nanoseconds> pauses;
unsigned int readings = 0;

/// Never destroyed, because the library reads the clock until the process ends.
std::condition_variable& read() {
    return immortal<std::condition_variable>();
}

nanoseconds clockOfTheSystem() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
}

} // namespace

SteadyClock::SteadyClock() {
    const std::lock_guard<std::mutex> lock(mutex);
    clockOfTheTest = clockOfTheSystem() + ahead;
    readings = 0;
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

void SteadyClock::awaitReadings(unsigned int count) const {
    std::unique_lock<std::mutex> lock(mutex);
    read().wait(lock, [=] { return readings >= count; });
}

std::vector<nanoseconds> SteadyClock::takePauses() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(pauses, {});
}

std::int64_t steadyClock(std::int64_t now, const void* caller) noexcept {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!isInLibrary(caller)) {
        return now;
    }
    if (!clockOfTheTest) {
        return now + ahead.count();
    }
    ++readings;
    read().notify_all();
    errno = EINTR; // as any function may
    return clockOfTheTest->count();
}

std::intptr_t pauseFor(const Call& call, const Real& real) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (clockOfTheTest && isInLibrary(call.caller)) {
            *clockOfTheTest += nanoseconds(call.number);
            pauses.emplace_back(call.number);
            return 0;
        }
    }
    return real();
}

} // namespace rk::tests
