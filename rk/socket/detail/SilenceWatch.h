#pragma once

#include <algorithm>

namespace rk::socket::detail {

/// Decides when a listener that receives nothing reconnects. It does so after the limit, then with pauses that double
/// up to 30 seconds, or up to the limit if that is longer.
class SilenceWatch {
public:
    /// 0 seconds means no limit.
    explicit SilenceWatch(unsigned int limitSeconds) : limit(limitSeconds), pause(limitSeconds) {}

    /// Notes that a message was received.
    void end() {
        silent = 0;
        pause = limit;
        attempts = 0;
    }

    /// Counts one more second of silence. Returns whether it is time to reconnect.
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

    /// Returns whether the attempt is the first since a message was received.
    bool isFirstAttempt() const { return attempts == 1; }

    unsigned int limitSeconds() const { return limit; }

private:
    static constexpr unsigned int longestPause = 30;

    unsigned int limit;
    unsigned int pause;
    unsigned int silent = 0; ///< seconds since the last message or the last attempt
    unsigned int attempts = 0;
};

} // namespace rk::socket::detail
