#pragma once

#include <chrono>

namespace rk::benchmarks {

/// Measures from its construction.
class Stopwatch {
public:
    double nanoseconds() const {
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
    }
    double seconds() const { return nanoseconds() / 1e9; }

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

} // namespace rk::benchmarks
