#pragma once

namespace rk::tools {

/// How the process ends. A task that a signal cut short ends with 128 + the signal's number instead.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    TimedOut = 3
};

} // namespace rk::tools
