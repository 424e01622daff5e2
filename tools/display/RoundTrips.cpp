#include "display/RoundTrips.h"

#include "display/Numbers.h"

#include <algorithm>
#include <cmath>

namespace rk::tools {

namespace {

constexpr double barLength = 40.0;
constexpr double bucketsOfClass = 693.0; // 0.1 % wide

std::string padded(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

} // namespace

void RoundTrips::add(std::chrono::nanoseconds time) {
    latest = std::chrono::duration<double, std::milli>(time).count();
    all.add(latest);
    const double power = std::log2(std::max(latest, 0.001));
    Bucket& bucket = buckets[static_cast<int>(std::floor(power * bucketsOfClass))];
    ++bucket.count;
    bucket.sum += latest;
    ++classes[static_cast<int>(std::floor(power))];
}

double RoundTrips::quantile(double share) const {
    const auto rank = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count())));
    std::uint64_t passed = 0;
    for (const auto& [power, bucket] : buckets) {
        passed += bucket.count;
        if (passed >= std::max<std::uint64_t>(rank, 1)) {
            return bucket.sum / static_cast<double>(bucket.count);
        }
    }
    return all.greatest();
}

std::vector<std::string> RoundTrips::distribution() const {
    if (count() == 0) {
        return {};
    }
    std::vector<std::string> lines = {"round trip in ms: least " + fixed(all.least(), 3) + ", median " +
                                      fixed(quantile(0.5), 3) + ", 90 % " + fixed(quantile(0.9), 3) + ", 99 % " +
                                      fixed(quantile(0.99), 3) + ", greatest " + fixed(all.greatest(), 3) + ", mean " +
                                      fixed(all.mean(), 3) + ", spread " + fixed(all.deviation(), 3)};
    for (const std::string& line : histogram()) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> RoundTrips::histogram() const {
    std::uint64_t most = 0;
    for (const auto& [power, number] : classes) {
        most = std::max(most, number);
    }
    std::vector<std::string> lines;
    for (int power = classes.begin()->first; power <= classes.rbegin()->first; ++power) {
        const auto found = classes.find(power);
        const std::uint64_t number = found == classes.end() ? 0 : found->second;
        const double length = barLength * static_cast<double>(number) / static_cast<double>(most);
        lines.push_back("  below " + padded(fixed(std::exp2(power + 1), 3), 10) + " ms " +
                        padded(std::to_string(number), 7) + " " +
                        std::string(static_cast<std::size_t>(std::ceil(length)), '#'));
    }
    return lines;
}

} // namespace rk::tools
