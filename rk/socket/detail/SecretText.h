#pragma once

#include <cstring>
#include <string>

namespace rk::socket::detail {

/// Overwrites `text` in a way that the compiler does not remove.
inline void wipe(std::string& text) noexcept {
    explicit_bzero(text.data(), text.size());
}

/// A text that is wiped on scope exit. Give it its full size at once: growing leaves copies behind.
struct SecretText {
    SecretText() = default;
    ~SecretText() { wipe(text); }
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    std::string text;
};

} // namespace rk::socket::detail
