#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace rk::tools {

/// Returns two lower-case hexadecimal digits for each byte.
std::string toHex(std::string_view bytes);

/// Returns the bytes of hexadecimal digits, which may have blanks between bytes. Nothing for any other text.
std::optional<std::string> fromHex(std::string_view text);

bool isUtf8(std::string_view bytes);

/// Returns `bytes` as a line that is safe for a terminal. Escapes control characters, invisible characters and bytes that
/// are not UTF-8, such as "\n" or "\x1B", and a backslash as "\\".
std::string printable(std::string_view bytes);
void appendPrintable(std::string& text, std::string_view bytes);

/// Returns lines of 16 bytes in the form of `xxd`, without the end of the last one.
std::string hexdump(std::string_view bytes);

} // namespace rk::tools
