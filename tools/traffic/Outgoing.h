#pragma once

#include "system/InputFile.h"
#include "traffic/Wire.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

class MessageCodec;
class Complaints;
class StopSignals;

/// Where messages come from: arguments, files, or standard input if there are neither.
struct SourceSettings {
    std::vector<std::string> messages;
    std::vector<std::string> files;
    bool lines = false; ///< each line of a file is a message
    bool whole = false; ///< all of standard input is one message
};

/// How many messages are sent or received, and how fast they are sent.
struct Repetition {
    std::optional<std::uint64_t> count; ///< 0 for no end, absent for each message once
    std::chrono::nanoseconds interval{0};

    bool isEndless() const { return count && *count == 0; }
    bool wantsMore(std::uint64_t sent) const { return !count || isEndless() || sent < *count; }
};

/// The messages to send, one after the other. Repeats them for --count, and waits for --interval between them. Reports
/// and skips a message that cannot be encoded.
class Outgoing {
public:
    Outgoing(SourceSettings source, const Repetition& repetition, MessageCodec& codec, Complaints& complaints,
             const StopSignals& stop);

    /// Waits until the next message is due. Nothing when there are no more, or after a signal. Throws
    /// std::runtime_error if a file cannot be read.
    std::optional<Parts> next();

private:
    using Clock = std::chrono::steady_clock;

    struct Text {
        std::string text;
        std::string place; ///< for error messages: "readings.json, line 3"
    };

    std::optional<Text> nextText();
    std::optional<Parts> nextEncoded();
    bool rewind();

    SourceSettings source;
    MessageCodec& codec;
    Complaints& complaints;
    const StopSignals& stop;
    Repetition repetition;
    std::size_t nextMessage = 0;
    std::size_t nextFile = 0;
    std::unique_ptr<InputFile> open;
    std::uint64_t lineNumber = 0;
    Clock::time_point due{};
    std::uint64_t given = 0;
    bool anyInThisRound = false;
};

} // namespace rk::tools
