#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace rk::tools {

/// The last numbers of a series as a line of bars, relative to the greatest of them.
class Sparkline {
public:
    void add(double number);
    std::string text() const;

private:
    std::deque<double> numbers;
};

} // namespace rk::tools
