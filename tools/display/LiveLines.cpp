#include "display/LiveLines.h"

namespace rk::tools {

namespace {

/// Returns the first `width` characters of UTF-8 text.
std::string cut(const std::string& text, std::size_t width) {
    std::size_t characters = 0;
    std::size_t end = 0;
    while (end < text.size()) {
        const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U;
        if (begins && ++characters > width) {
            break;
        }
        ++end;
    }
    return text.substr(0, end);
}

} // namespace

std::string LiveLines::draw(const std::vector<std::string>& lines, std::size_t width) {
    std::string bytes;
    if (drawn > 0) {
        bytes += width < lastWidth ? "\033[H\033[J" : "\033[" + std::to_string(drawn) + "A";
    }
    for (const std::string& line : lines) {
        bytes += "\r\033[K" + cut(line, width) + "\n";
    }
    if (lines.size() < drawn) {
        bytes += "\033[J";
    }
    drawn = lines.size();
    lastWidth = width;
    return bytes;
}

std::string LiveLines::clear() {
    const std::string bytes = drawn == 0 ? "" : "\033[" + std::to_string(drawn) + "A\r\033[J";
    drawn = 0;
    return bytes;
}

} // namespace rk::tools
