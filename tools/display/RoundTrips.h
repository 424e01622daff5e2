#pragma once

#include "display/Spread.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rk::tools {

/// The distribution of round-trip times, in bounded memory: times that differ by less than 0.1 % become their mean.
class RoundTrips {
public:
    void add(std::chrono::nanoseconds time);

    std::uint64_t count() const { return all.count(); }
    double last() const { return latest; } ///< in milliseconds

    /// Returns the time, in milliseconds, in which a share of the replies, from 0 to 1, arrived.
    double quantile(double share) const;

    /// Returns printed lines: least, median, quantiles, mean, and a histogram whose classes double in width.
    std::vector<std::string> distribution() const;

private:
    struct Bucket {
        std::uint64_t count = 0;
        double sum = 0.0;
    };

    std::vector<std::string> histogram() const;

    double latest = 0.0;
    Spread all;
    std::map<int, Bucket> buckets; ///< by the logarithm of the time
    std::map<int, std::uint64_t> classes;
};

} // namespace rk::tools
