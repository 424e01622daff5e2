#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rk::tests::crash {

/// Writes one line "time process event" to standard output. Writes it atomically, so that a killed process leaves no
/// partial line. The time is that of the monotonic clock in nanoseconds. Any thread may call it.
void record(const std::string& event);

/// The name of this process in the lines. Set it first.
inline std::string processName;

/// The contents of a message: its sender, its number, and how often it has been sent before.
struct Letter {
    std::string sender;
    std::uint64_t number = 0;
    unsigned attempt = 0;
    bool fails = false; ///< asks the handler to fail

    std::string text() const;
};

/// Returns the letter as a string that starts with a checksum, because the network may corrupt it.
std::string seal(const Letter& letter);

/// Returns the letter of a string that `seal` has returned, or nothing for any other string.
std::optional<Letter> unseal(const std::string& sealed);

} // namespace rk::tests::crash
