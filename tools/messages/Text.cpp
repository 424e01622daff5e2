#include "messages/Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdio>

namespace rk::tools {

namespace {

constexpr std::string_view lowerDigits = "0123456789abcdef";
constexpr std::string_view upperDigits = "0123456789ABCDEF";

unsigned char byteAt(std::string_view bytes, std::size_t place) {
    return static_cast<unsigned char>(bytes[place]);
}

bool isPlain(unsigned char byte) {
    return (byte >= 0x20 && byte < 0x7F && byte != '\\') || byte == '\t';
}

/// Returns the length of the first character if it is UTF-8 of two bytes or more, else 0.
std::size_t lengthOfCharacter(std::string_view bytes) {
    const unsigned char first = byteAt(bytes, 0);
    const std::size_t length = first >= 0xC2 && first < 0xE0   ? 2
                               : first >= 0xE0 && first < 0xF0 ? 3
                               : first >= 0xF0 && first < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || bytes.size() < length) {
        return 0;
    }
    for (std::size_t place = 1; place < length; ++place) {
        if ((byteAt(bytes, place) & 0xC0U) != 0x80U) {
            return 0;
        }
    }
    const unsigned char second = byteAt(bytes, 1);
    const bool longerThanNeeded = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool noCharacter = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return longerThanNeeded || noCharacter ? 0 : length;
}

/// Returns whether a character of two bytes or more is invisible or changes its neighbours: C1 controls, marks and
/// overrides of the direction, line separators, zero-width characters and tags.
bool isControl(std::string_view character) {
    const unsigned char second = byteAt(character, 1);
    const unsigned char third = character.size() > 2 ? byteAt(character, 2) : 0;
    switch (byteAt(character, 0)) {
    case 0xC2:
        return second < 0xA0 || second == 0xAD;
    case 0xD8:
        return second == 0x9C;
    case 0xE2:
        return (second == 0x80 && ((third >= 0x8B && third <= 0x8F) || (third >= 0xA8 && third <= 0xAE))) ||
               (second == 0x81 && third >= 0xA0 && third <= 0xAF);
    case 0xEF:
        return second == 0xBB && third == 0xBF;
    case 0xF3:
        return second == 0xA0 && third <= 0x81;
    default:
        return false;
    }
}

void appendEscaped(std::string& text, unsigned char byte) {
    if (byte == '\n') {
        text += "\\n";
    } else if (byte == '\r') {
        text += "\\r";
    } else if (byte == '\\') {
        text += "\\\\";
    } else {
        text += "\\x";
        text += upperDigits[byte / 16U];
        text += upperDigits[byte % 16U];
    }
}

} // namespace

std::string toHex(std::string_view bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        text += lowerDigits[byteAt(bytes, place) / 16U];
        text += lowerDigits[byteAt(bytes, place) % 16U];
    }
    return text;
}

std::optional<std::string> fromHex(std::string_view text) {
    std::string bytes;
    std::size_t place = 0;
    while (place < text.size()) {
        if (std::isspace(byteAt(text, place)) != 0) {
            ++place;
            continue;
        }
        const std::string_view digits = text.substr(place, 2);
        unsigned char byte = 0;
        if (std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16).ptr != digits.data() + 2) {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
        place += 2;
    }
    return bytes;
}

bool isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = byteAt(bytes, 0) < 0x80 ? 1 : lengthOfCharacter(bytes);
        if (length == 0) {
            return false;
        }
        bytes.remove_prefix(length);
    }
    return true;
}

std::string printable(std::string_view bytes) {
    std::string text;
    appendPrintable(text, bytes);
    return text;
}

void appendPrintable(std::string& text, std::string_view bytes) {
    std::size_t place = 0;
    while (place < bytes.size()) {
        const std::size_t start = place;
        while (place < bytes.size() && isPlain(byteAt(bytes, place))) {
            ++place;
        }
        text += bytes.substr(start, place - start);
        if (place == bytes.size()) {
            break;
        }
        const std::size_t length = lengthOfCharacter(bytes.substr(place));
        const std::string_view character = bytes.substr(place, std::max<std::size_t>(length, 1));
        if (length > 0 && !isControl(character)) {
            text += character;
        } else {
            std::for_each(character.begin(), character.end(),
                          [&text](char byte) { appendEscaped(text, static_cast<unsigned char>(byte)); });
        }
        place += character.size();
    }
}

std::string hexdump(std::string_view bytes) {
    constexpr std::size_t width = 16;
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += width) {
        const std::string_view line = bytes.substr(start, width);
        std::array<char, 20> place{};
        std::snprintf(place.data(), place.size(), "%08zx:", start);
        std::string digits;
        std::string characters;
        for (std::size_t index = 0; index < width; ++index) {
            digits += index % 2 == 0 ? " " : "";
            digits += index < line.size() ? toHex(line.substr(index, 1)) : "  ";
            const bool shown = index < line.size() && byteAt(line, index) >= 0x20 && byteAt(line, index) < 0x7F;
            characters += index >= line.size() ? "" : shown ? std::string(1, line[index]) : ".";
        }
        text.append(start == 0 ? "" : "\n").append(place.data()).append(digits).append("  ").append(characters);
    }
    return text;
}

} // namespace rk::tools
