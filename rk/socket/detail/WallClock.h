#pragma once

#include <sys/time.h>

namespace rk::socket::detail {

/// Returns the time of the wall clock in seconds.
inline double wallClockSeconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0;
}

} // namespace rk::socket::detail
