#pragma once

#include "system/StopSignals.h"

#include <chrono>
#include <cstddef>
#include <optional>

namespace rk::tools {

/// Limits the bit rate.
class Pacer {
public:
    /// `rate` is in megabits (of 1,048,576 bits) per second.
    Pacer(const std::optional<unsigned int>& rate, const StopSignals& stopSignals)
        : secondsPerByte(rate ? 8.0 / 1048576.0 / *rate : 0.0), stop(stopSignals) {}

    /// Waits as long as sending `size` bytes takes at this rate.
    void pauseAfter(std::size_t size) {
        if (secondsPerByte == 0.0) {
            return;
        }
        const std::chrono::duration<double> time(secondsPerByte * static_cast<double>(size));
        due = std::max(due, Clock::now()) + std::chrono::duration_cast<Clock::duration>(time);
        stop.sleepUntil(due);
    }

private:
    using Clock = std::chrono::steady_clock;

    double secondsPerByte;
    const StopSignals& stop;
    Clock::time_point due{};
};

} // namespace rk::tools
