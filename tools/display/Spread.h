#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace rk::tools {

/// The least, the mean and the greatest of a series of numbers, and their standard deviation.
class Spread {
public:
    /// Uses Welford's algorithm, which is exact for large numbers that lie close together.
    void add(double value) {
        smallest = std::min(smallest, value);
        largest = std::max(largest, value);
        ++number;
        const double before = value - average;
        average += before / static_cast<double>(number);
        squares += before * (value - average);
    }

    std::uint64_t count() const { return number; }
    double least() const { return smallest; }
    double greatest() const { return largest; }
    double mean() const { return average; }
    double deviation() const { return std::sqrt(squares / static_cast<double>(std::max<std::uint64_t>(number, 1))); }

private:
    std::uint64_t number = 0;
    double smallest = std::numeric_limits<double>::infinity();
    double largest = -smallest;
    double average = 0.0;
    double squares = 0.0;
};

} // namespace rk::tools
