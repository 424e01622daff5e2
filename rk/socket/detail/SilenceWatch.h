#pragma once

#include <algorithm>

namespace rk::socket::detail {

/// Decides when a listener that receives nothing connects again: after the limit, and then with pauses that double up
/// to 30 seconds, or to the limit if that is longer.
class SilenceWatch {
public:
    /// A `limit` of 0 seconds never ends.
    explicit SilenceWatch(unsigned int limitSeconds) : limit(limitSeconds), pause(limitSeconds) {}

    /// Notes that something was received.
    void end() {
        silent = 0;
        pause = limit;
        attempts = 0;
    }

    /// Counts one more second of silence. Returns whether it is time to connect again.
    bool goesOnTooLong() {
        if (limit == 0 || ++silent < pause) {
            return false;
        }
        silent = 0;
        if (++attempts > 1) {
            pause = std::max(limit, std::min(2 * pause, longestPause));
        }
        return true;
    }

    /// Whether the attempt is the first since something was received.
    bool isFirstAttempt() const { return attempts == 1; }

    unsigned int limitSeconds() const { return limit; }

private:
    static constexpr unsigned int longestPause = 30;

    unsigned int limit;
    unsigned int pause;
    unsigned int silent = 0; ///< seconds since something was received, or since the last attempt
    unsigned int attempts = 0;
};

} // namespace rk::socket::detail
