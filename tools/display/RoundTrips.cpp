#include "display/RoundTrips.h"

#include "display/Numbers.h"
#include "display/Spread.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace rk::tools {

namespace {

constexpr double barLength = 40.0;

std::string padded(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

} // namespace

void RoundTrips::add(std::chrono::nanoseconds time) {
    milliseconds.push_back(std::chrono::duration<double, std::milli>(time).count());
}

double RoundTrips::quantile(double share) const {
    std::vector<double> sorted = milliseconds;
    std::sort(sorted.begin(), sorted.end());
    const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

std::vector<std::string> RoundTrips::distribution() const {
    if (milliseconds.empty()) {
        return {};
    }
    Spread spread;
    for (const double time : milliseconds) {
        spread.add(time);
    }
    std::vector<std::string> lines = {"round trip in ms: least " + fixed(spread.least(), 3) + ", median " +
                                      fixed(quantile(0.5), 3) + ", 90 % " + fixed(quantile(0.9), 3) + ", 99 % " +
                                      fixed(quantile(0.99), 3) + ", greatest " + fixed(spread.greatest(), 3) +
                                      ", mean " + fixed(spread.mean(), 3) + ", spread " + fixed(spread.deviation(), 3)};
    for (const std::string& line : histogram()) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> RoundTrips::histogram() const {
    std::map<int, std::size_t> classes;
    std::size_t most = 0;
    for (const double time : milliseconds) {
        most = std::max(most, ++classes[static_cast<int>(std::floor(std::log2(std::max(time, 0.001))))]);
    }
    std::vector<std::string> lines;
    for (int power = classes.begin()->first; power <= classes.rbegin()->first; ++power) {
        const std::size_t number = classes[power];
        const double length = barLength * static_cast<double>(number) / static_cast<double>(most);
        lines.push_back("  below " + padded(fixed(std::exp2(power + 1), 3), 10) + " ms " +
                        padded(std::to_string(number), 7) + " " +
                        std::string(static_cast<std::size_t>(std::ceil(length)), '#'));
    }
    return lines;
}

} // namespace rk::tools
