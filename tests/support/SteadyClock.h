#pragma once

#include <chrono>
#include <vector>

namespace rk::tests {

/// Stops the library's steady clock during its lifetime. The library's pauses advance it instead of waiting.
class SteadyClock {
public:
    SteadyClock();
    ~SteadyClock();
    SteadyClock(const SteadyClock&) = delete;
    SteadyClock& operator=(const SteadyClock&) = delete;

    void advance(std::chrono::nanoseconds time);

    /// Waits until the library has read the clock `count` times since construction.
    void awaitReadings(unsigned int count) const;

    /// Returns the library's pauses, in order, since construction or the last call.
    std::vector<std::chrono::nanoseconds> takePauses();
};

} // namespace rk::tests
