#include "display/Sparkline.h"

#include <algorithm>
#include <array>

namespace rk::tools {

namespace {

constexpr std::size_t length = 20;
constexpr std::array<const char*, 8> bars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

} // namespace

void Sparkline::add(double number) {
    numbers.push_back(number);
    if (numbers.size() > length) {
        numbers.pop_front();
    }
}

std::string Sparkline::text() const {
    const double greatest = numbers.empty() ? 0.0 : *std::max_element(numbers.begin(), numbers.end());
    std::string line;
    for (const double number : numbers) {
        const double share = greatest > 0.0 ? number / greatest : 0.0;
        line += bars[std::min(static_cast<std::size_t>(share * bars.size()), bars.size() - 1)];
    }
    return line;
}

} // namespace rk::tools
