#include "display/Numbers.h"

#include <array>
#include <cstdio>

namespace rk::tools {

std::string fixed(double number, int digits) {
    std::array<char, 400> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, number);
    return text.data();
}

std::string described(std::chrono::nanoseconds duration) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%g ms", std::chrono::duration<double, std::milli>(duration).count());
    return text.data();
}

} // namespace rk::tools
