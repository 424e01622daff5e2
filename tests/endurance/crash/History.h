#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rk::tests::crash {

/// Writes one line "time process event" to standard output, in one go: a process that is killed leaves no half line.
/// The time is that of the monotonic clock, in nanoseconds. Any thread may call it.
void record(const std::string& event);

/// The name under which this process records. It is set once, before anything else.
inline std::string processName;

/// What travels in a message: its sender, its number, and how often it has been sent before.
struct Letter {
    std::string sender;
    std::uint64_t number = 0;
    unsigned attempt = 0;
    bool fails = false; ///< asks the handler to fail

    std::string text() const;
};

/// Returns the letter as text with a checksum in front, since the network may change bytes.
std::string seal(const Letter& letter);

/// Returns nothing if `seal` has not made the text.
std::optional<Letter> unseal(const std::string& sealed);

} // namespace rk::tests::crash
