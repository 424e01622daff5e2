#include "display/Flow.h"

#include "display/Numbers.h"

#include <algorithm>

namespace rk::tools {

namespace {

constexpr double megabit = 1048576.0;

double seconds(Flow::Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

Flow::Flow(Clock::time_point start, std::optional<Clock::time_point> previous) : begin(start), last(previous) {}

void Flow::add(std::size_t size, Clock::time_point arrival) {
    if (last) {
        gaps.add(seconds(arrival - *last) * 1000.0);
    }
    last = arrival;
    lengths.add(static_cast<double>(size));
    bytes += static_cast<double>(size);
}

double Flow::messagesPerSecond(Clock::time_point now) const {
    return static_cast<double>(messages()) / std::max(seconds(now - begin), 1e-9);
}

double Flow::megabitsPerSecond(Clock::time_point now) const {
    return bytes * 8.0 / megabit / std::max(seconds(now - begin), 1e-9);
}

std::string Flow::rates(Clock::time_point now) const {
    return fixed(messagesPerSecond(now), 1) + " messages/s, " + fixed(megabitsPerSecond(now), 3) + " Mbit/s";
}

std::string Flow::sizes() const {
    return lengths.count() == 0
               ? "-"
               : fixed(lengths.least(), 0) + "/" + fixed(lengths.mean(), 1) + "/" + fixed(lengths.greatest(), 0);
}

std::string Flow::sizeText() const {
    return "size " + sizes() + (lengths.count() == 0 ? "" : " bytes");
}

std::string Flow::gapText() const {
    if (gaps.count() == 0) {
        return "gap -";
    }
    return "gap " + fixed(gaps.least(), 3) + "/" + fixed(gaps.mean(), 3) + "/" + fixed(gaps.greatest(), 3) +
           " ms, spread " + fixed(gaps.deviation(), 3) + " ms";
}

} // namespace rk::tools
