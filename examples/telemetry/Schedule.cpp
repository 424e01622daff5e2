#include "Schedule.h"

#include <algorithm>

namespace telemetry {

Schedule::Schedule(std::chrono::milliseconds firstInterval) : interval(firstInterval) {}

std::optional<std::uint64_t> Schedule::waitForNext() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopped && (paused || Clock::now() < due)) {
        if (paused) {
            changed.wait(lock);
        } else {
            changed.wait_until(lock, due);
        }
    }
    if (stopped) {
        return std::nullopt;
    }
    // After a delay, continue at the interval and do not catch up.
    due = std::max(due + interval, Clock::now());
    return ++sequence;
}

void Schedule::setInterval(std::chrono::milliseconds newInterval) {
    const std::lock_guard<std::mutex> lock(mutex);
    interval = newInterval;
    due = std::min(due, Clock::now() + interval);
    changed.notify_all();
}

void Schedule::pause() {
    const std::lock_guard<std::mutex> lock(mutex);
    paused = true;
    changed.notify_all();
}

void Schedule::resume() {
    const std::lock_guard<std::mutex> lock(mutex);
    paused = false;
    changed.notify_all();
}

void Schedule::stop() {
    const std::lock_guard<std::mutex> lock(mutex);
    stopped = true;
    changed.notify_all();
}

Schedule::State Schedule::state() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return {paused, interval, sequence};
}

} // namespace telemetry
