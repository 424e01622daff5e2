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

/// `bytes` in one line that is safe for a terminal: tabs and UTF-8 as they are, control characters as "\n" or "\x1B",
/// bytes that are not UTF-8 as "\xFF".
std::string printable(std::string_view bytes);

} // namespace rk::tools
