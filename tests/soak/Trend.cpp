#include "soak/Trend.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace rk::tests::soak {

namespace {

Point mean(const std::vector<Point>& points, std::size_t begin, std::size_t end) {
    Point sum;
    for (std::size_t i = begin; i < end; ++i) {
        sum.x += points[i].x;
        sum.y += points[i].y;
    }
    const auto count = static_cast<double>(end - begin);
    return {sum.x / count, sum.y / count};
}

} // namespace

Trend fit(const std::vector<Point>& points) {
    if (points.size() < 3) {
        throw std::invalid_argument("a trend needs three points");
    }
    const Point centre = mean(points, 0, points.size());
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

std::vector<Point> minima(const std::vector<Point>& points, std::size_t count) {
    if (points.size() <= count) {
        return points;
    }
    std::vector<Point> result;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t begin = i * points.size() / count;
        const std::size_t end = (i + 1) * points.size() / count;
        double least = points[begin].y;
        for (std::size_t k = begin; k < end; ++k) {
            least = std::min(least, points[k].y);
        }
        result.push_back({mean(points, begin, end).x, least});
    }
    return result;
}

} // namespace rk::tests::soak
