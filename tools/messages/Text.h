#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace rk::tools {

/// Two lower-case hexadecimal digits for each byte.
std::string toHex(std::string_view bytes);

/// The bytes that `text` writes in hexadecimal digits, with blanks between bytes or not; nothing if it is anything
/// else.
std::optional<std::string> fromHex(std::string_view text);

bool isUtf8(std::string_view bytes);

/// `bytes` in one line that is safe for a terminal: tabs and UTF-8 as they are, a backslash as "\\",
/// control characters as "\n" or "\x1B". Bytes that are not UTF-8, and characters that change the direction of the text
/// or are otherwise invisible, are escaped byte by byte, as "\xFF".
std::string printable(std::string_view bytes);
void appendPrintable(std::string& text, std::string_view bytes);

/// Lines of 16 bytes as `xxd` writes them: place, digits, characters. Without the end of the last line.
std::string hexdump(std::string_view bytes);

} // namespace rk::tools
