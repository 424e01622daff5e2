#include <rk/socket/Socket.h>
#include <rk/socket/detail/WallClock.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <unistd.h>

namespace rk::socket {

namespace {

/// Sleeps in pieces, because `usleep` takes 32 bits.
void sleepFor(double seconds) {
    constexpr std::uint64_t longest = std::numeric_limits<useconds_t>::max();
    auto left = static_cast<std::uint64_t>(seconds * 1000000.0);
    do {
        const std::uint64_t piece = std::min(left, longest);
        usleep(static_cast<useconds_t>(piece));
        left -= piece;
    } while (left != 0);
}

} // namespace

void Socket::RateCap::pauseAfter(unsigned int size) {
    const double now = detail::wallClockSeconds();
    if (lastSendTime < 1.0) {
        lastSendTime = now;
        return;
    }
    const double needed = (size * 8.0) / (targetBitRate * 1024.0 * 1024.0);
    const double due = lastSendTime + needed;
    if (due > now) {
        // A clock that was set back must not lengthen the pause.
        sleepFor(now < lastSendTime ? needed : due - now);
    }
    lastSendTime = detail::wallClockSeconds();
}

} // namespace rk::socket
