#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rk::tests::crash {

/// Writes one line "time process event" to standard output, in one go: what is written outlives a process that is
/// killed. The time is that of the machine's monotonic clock, in nanoseconds. Any thread may call it.
void record(const std::string& event);

/// The name under which this process records; set once, before anything else.
void nameProcess(const std::string& name);
const std::string& processName();

/// What travels in a message: who has sent it, its number, and how often it has been sent before.
struct Letter {
    std::string sender;
    std::uint64_t number = 0;
    unsigned attempt = 0;
    bool fails = false; ///< asks the handler to fail

    std::string text() const;
};

/// The letter as text with a checksum in front, since the network may change bytes.
std::string seal(const Letter& letter);

/// None when the text is not what `seal` has made.
std::optional<Letter> unseal(const std::string& sealed);

} // namespace rk::tests::crash
