#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace telemetry {

/// Determines when the next reading is due. One thread waits for it and others change the interval. Any thread may call
/// the operations.
class Schedule {
public:
    struct State {
        bool paused;
        std::chrono::milliseconds interval;
        std::uint64_t lastSequence;
    };

    explicit Schedule(std::chrono::milliseconds interval);

    /// Waits until a reading is due and returns its sequence number. Returns nothing after `stop`.
    std::optional<std::uint64_t> waitForNext();

    void setInterval(std::chrono::milliseconds newInterval);
    void pause();
    void resume();
    void stop();

    State state() const;

private:
    using Clock = std::chrono::steady_clock;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::chrono::milliseconds interval;
    Clock::time_point due = Clock::now();
    std::uint64_t sequence = 0;
    bool paused = false;
    bool stopped = false;
};

} // namespace telemetry
