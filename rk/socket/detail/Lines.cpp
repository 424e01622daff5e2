#include <rk/socket/detail/Lines.h>

#include <algorithm>
#include <stdexcept>

namespace rk::socket::detail {

std::optional<std::string_view> Lines::next() {
    ++number;
    if (text.empty()) {
        return std::nullopt;
    }
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

void Lines::refuse(const std::string& reason) const {
    throw std::runtime_error("Security: " + path + ":" + std::to_string(number) + ": " + reason);
}

} // namespace rk::socket::detail
