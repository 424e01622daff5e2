#include "Interpose.h"

#include <chrono>
#include <ctime>

using namespace rk::tests;

/// The pauses of the standard library call this function. A call that fails has slept for half of the time.
extern "C" int nanosleep(const timespec* time, timespec* left) {
    static auto* const real = next<decltype(nanosleep)>("nanosleep");
    const long length = time->tv_sec * 1000000000L + time->tv_nsec;
    const auto go = [&] { return real(time, left); };
    const Call call{Function::Nanosleep, __builtin_return_address(0), nullptr, nullptr, length};
    const auto result = static_cast<int>(pauseFor(call, Real(go)));
    if (result < 0 && left != nullptr) {
        *left = {length / 2000000000, length / 2 % 1000000000};
    }
    return result;
}

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::chrono::nanoseconds time = seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
    return time_point(nanoseconds(steadyClock(time.count(), __builtin_return_address(0))));
}
