#pragma once

#include <chrono>
#include <poll.h>
#include <unistd.h>

namespace rk::tests {

/// Waits for at most `time`. Returns whether standard input has ended, which asks a test program to end.
inline bool inputEndsWithin(std::chrono::milliseconds time) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, static_cast<int>(time.count())) > 0;
}

} // namespace rk::tests
