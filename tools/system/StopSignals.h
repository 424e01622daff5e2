#pragma once

#include <chrono>

namespace rk::tools {

/// Turns SIGINT and SIGTERM into a request to stop, which interrupts whatever waits. Another one a second later, or after
/// that, ends the process at once. SIGPIPE is ignored: a reader that is gone shows when it is written to. One object for the whole process.
class StopSignals {
public:
    using Clock = std::chrono::steady_clock;

    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    bool requested() const;

    /// The number of the signal that asked to stop, or 0.
    int signal() const;

    /// Waits until `time`. False when told to stop before.
    bool sleepUntil(Clock::time_point time) const;

    /// Becomes readable with the request.
    int descriptor() const;
};

} // namespace rk::tools
