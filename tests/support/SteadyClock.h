#pragma once

#include <chrono>
#include <vector>

namespace rk::tests {

/// While it lives, the library's steady clock stands still, and its pauses advance it instead of waiting.
class SteadyClock {
public:
    SteadyClock();
    ~SteadyClock();
    SteadyClock(const SteadyClock&) = delete;
    SteadyClock& operator=(const SteadyClock&) = delete;

    void advance(std::chrono::nanoseconds time);

    /// The library's pauses, in order, since this was made or asked for them last.
    std::vector<std::chrono::nanoseconds> takePauses();
};

} // namespace rk::tests
