#include <rk/detail/ErrnoKeeper.h>
#include <rk/detail/LogIfPossible.h>
#include <rk/socket/Socket.h>
#include <rk/socket/detail/WallClock.h>
#include <rk/utils/Log.h>

namespace rk::socket {

namespace {

constexpr std::uint32_t blocksPerPeriod = 50;

} // namespace

void Socket::Statistics::activate(bool activeFromNow) {
    active = activeFromNow;
    startOver();
}

void Socket::Statistics::startOver() {
    sampleCount = 0;
    byteCount = 0;
    blockCount = 0;
}

void Socket::Statistics::add(unsigned int size, const IMessageFormatter& socket) noexcept {
    if (sampleCount == 0) {
        beginPeriod();
    }
    byteCount += size;
    ++blockCount;
    ++sampleCount;
    if (sampleCount == blocksPerPeriod) {
        endPeriod(socket);
    }
}

[[gnu::cold]] void Socket::Statistics::beginPeriod() noexcept {
    const rk::detail::ErrnoKeeper keeper;
    startTime = detail::wallClockSeconds();
}

[[gnu::cold]] void Socket::Statistics::endPeriod(const IMessageFormatter& socket) noexcept {
    const rk::detail::ErrnoKeeper keeper;
    const double elapsed = detail::wallClockSeconds() - startTime;
    const double megabits = byteCount / elapsed * 0.0009765625 * 0.0009765625 * 8.0;
    const double megabytes = megabits * 0.125;
    const double blocks = blockCount / elapsed;
    rk::detail::logIfPossible(rk::utils::logDebug, [&] {
        return socket.formatMessage("Rate is " + std::to_string(megabytes) + " Mbytes/s = " + std::to_string(megabits) +
                                    " Mbits/s, " + std::to_string(blocks) + " Blocks/s");
    });
    startOver();
}

} // namespace rk::socket
