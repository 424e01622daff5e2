#include "soak/Trend.h"

#include <cmath>
#include <stdexcept>

namespace rk::tests::soak {

namespace {

Point meanOf(const std::vector<Point>& points) {
    Point sum;
    for (const Point& point : points) {
        sum.x += point.x;
        sum.y += point.y;
    }
    const auto count = static_cast<double>(points.size());
    return {sum.x / count, sum.y / count};
}

} // namespace

Trend fit(const std::vector<Point>& points) {
    if (points.size() < 3) {
        throw std::invalid_argument("a trend needs three points");
    }
    const Point centre = meanOf(points);
    double xx = 0;
    double xy = 0;
    for (const Point& point : points) {
        xx += (point.x - centre.x) * (point.x - centre.x);
        xy += (point.x - centre.x) * (point.y - centre.y);
    }
    if (xx == 0) {
        throw std::invalid_argument("a trend needs points at different places");
    }
    Trend trend;
    trend.slope = xy / xx;
    double squares = 0;
    for (const Point& point : points) {
        const double rest = point.y - centre.y - trend.slope * (point.x - centre.x);
        squares += rest * rest;
    }
    trend.error = std::sqrt(squares / static_cast<double>(points.size() - 2) / xx);
    trend.first = centre.y + trend.slope * (points.front().x - centre.x);
    trend.last = centre.y + trend.slope * (points.back().x - centre.x);
    return trend;
}

} // namespace rk::tests::soak
