#pragma once

#include <cstdint>

namespace rk::tools {

/// Least, greatest and mean of numbers that are given one by one, and how far they lie from the mean.
class Spread {
public:
    void add(double value);

    std::uint64_t count() const { return number; }
    double least() const { return smallest; }
    double greatest() const { return largest; }
    double mean() const { return average; }

    /// The standard deviation.
    double deviation() const;

private:
    std::uint64_t number = 0;
    double smallest = 0.0;
    double largest = 0.0;
    double average = 0.0;
    double squares = 0.0;
};

} // namespace rk::tools
