#include "display/Spread.h"

#include <algorithm>
#include <cmath>

namespace rk::tools {

void Spread::add(double value) {
    smallest = number == 0 ? value : std::min(smallest, value);
    largest = number == 0 ? value : std::max(largest, value);
    ++number;
    // Welford's way: exact also when the numbers are large and lie close together.
    const double before = value - average;
    average += before / static_cast<double>(number);
    squares += before * (value - average);
}

double Spread::deviation() const {
    return number < 2 ? 0.0 : std::sqrt(squares / static_cast<double>(number));
}

} // namespace rk::tools
