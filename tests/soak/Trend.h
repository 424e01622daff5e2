#pragma once

#include <vector>

namespace rk::tests::soak {

struct Point {
    double x = 0;
    double y = 0;
};

/// A straight line through points, by least squares.
struct Trend {
    double slope = 0;
    double error = 0; ///< standard error of the slope
    double first = 0; ///< the line's height at the first point
    double last = 0;  ///< and at the last
};

/// At least three points, not all at the same `x`; `std::invalid_argument` otherwise.
Trend fit(const std::vector<Point>& points);

} // namespace rk::tests::soak
