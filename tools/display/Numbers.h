#pragma once

#include <chrono>
#include <string>

namespace rk::tools {

/// "12.35": `digits` digits after the point.
std::string fixed(double number, int digits);

/// "500 ms", "0.25 ms".
std::string described(std::chrono::nanoseconds duration);

} // namespace rk::tools
