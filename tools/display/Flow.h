#pragma once

#include "display/Spread.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

/// Measures how many messages arrive since a given time, how large and how regular.
class Flow {
public:
    using Clock = std::chrono::steady_clock;

    /// `previous` is the arrival of the last message before `start`, if there was one.
    explicit Flow(Clock::time_point start, std::optional<Clock::time_point> previous = std::nullopt);

    void add(std::size_t size, Clock::time_point arrival);

    std::uint64_t messages() const { return lengths.count(); }
    std::optional<Clock::time_point> lastArrival() const { return last; }

    double messagesPerSecond(Clock::time_point now) const;
    double megabitsPerSecond(Clock::time_point now) const;

    // Printed forms. A megabit is 1,048,576 bits, as in the library.
    std::string rates(Clock::time_point now) const; ///< "20.0 messages/s, 0.012 Mbit/s"
    std::string sizeText() const;                   ///< "size 74/76.2/80 bytes", least, mean, greatest
    std::string sizes() const;                      ///< "74/76.2/80", or "-" without messages
    std::string gapText() const;                    ///< "gap 49.8/50.0/50.3 ms, spread 0.1 ms"

private:
    Clock::time_point begin;
    std::optional<Clock::time_point> last;
    double bytes = 0.0;
    Spread lengths;
    Spread gaps;
};

} // namespace rk::tools
