#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace rk::tools {

/// How long replies took.
class RoundTrips {
public:
    void add(std::chrono::nanoseconds time);

    std::size_t count() const { return milliseconds.size(); }
    double last() const { return milliseconds.back(); } ///< in milliseconds

    /// The time below which the given share of the replies, from 0 to 1, came; in milliseconds.
    double quantile(double share) const;

    /// Lines for people: least, median, quantiles, mean and a histogram whose classes double in width.
    std::vector<std::string> distribution() const;

private:
    std::vector<std::string> histogram() const;

    std::vector<double> milliseconds;
};

} // namespace rk::tools
