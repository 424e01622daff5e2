#pragma once

#include <chrono>

namespace rk::tools {

/// Turns SIGINT and SIGTERM into a request to stop, which interrupts each wait. Another one, a second later or more, ends
/// the process at once. Ignores SIGPIPE, so that writing fails instead. The process has one object.
class StopSignals {
public:
    using Clock = std::chrono::steady_clock;

    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    bool requested() const;

    /// Returns the number of the signal, or 0.
    int signal() const;

    /// Waits until `time`. Returns false after a signal.
    bool sleepUntil(Clock::time_point time) const;

    /// A descriptor that becomes readable with the request.
    int descriptor() const;
};

} // namespace rk::tools
