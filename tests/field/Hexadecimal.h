#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace rk::tests {

/// Two digits a byte; "-" for no bytes, so that a word is written in any case.
inline std::string toHexadecimal(const std::string& bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text.empty() ? "-" : text;
}

inline int valueOf(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    throw std::runtime_error("not hexadecimal");
}

inline std::string fromHexadecimal(const std::string& text) {
    if (text == "-") {
        return {};
    }
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t index = 0; index + 1 < text.size(); index += 2) {
        bytes += static_cast<char>(16 * valueOf(text[index]) + valueOf(text[index + 1]));
    }
    return bytes;
}

} // namespace rk::tests
