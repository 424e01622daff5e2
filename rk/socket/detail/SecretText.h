#pragma once

#include <cstring>
#include <string>

namespace rk::socket::detail {

/// Overwrites `text` with zeros. The compiler cannot remove the call.
inline void wipe(std::string& text) noexcept {
    explicit_bzero(text.data(), text.size());
}

/// A string that is wiped on scope exit. Reserve its full size first, because growing leaves copies in memory.
struct SecretText {
    SecretText() = default;
    ~SecretText() { wipe(text); }
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    std::string text;
};

} // namespace rk::socket::detail
