#include "Duration.h"

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace rk::tools {

namespace {

constexpr double longestSeconds = 1e9;
constexpr std::array<std::pair<std::string_view, double>, 5> units{
    {{"", 1.0}, {"us", 1e-6}, {"ms", 1e-3}, {"s", 1.0}, {"min", 60.0}}};

} // namespace

std::chrono::nanoseconds durationFromText(const std::string& text) {
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    for (const auto& [name, seconds] : units) {
        if (error == std::errc() && unit == name && number >= 0.0 && number * seconds <= longestSeconds) {
            return std::chrono::nanoseconds(static_cast<std::int64_t>(number * seconds * 1e9));
        }
    }
    throw std::runtime_error("'" + text + "' is no duration: a number and us, ms, s (also without a unit) or min");
}

} // namespace rk::tools
