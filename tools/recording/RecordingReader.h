#pragma once

#include "system/InputFile.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

/// Reads a recording, message by message.
class RecordingReader {
public:
    struct Entry {
        std::chrono::nanoseconds time; ///< since the first message
        std::vector<std::string> parts;
    };

    /// Refuses messages longer than `maxSize`. Throws std::runtime_error if the file cannot be read, is no recording, or
    /// one of another version.
    RecordingReader(const std::string& path, std::size_t maxSize, const StopSignals& stop);

    /// Returns the next message, or nothing at the end or after a signal. Throws std::runtime_error with the place of a
    /// cut or damaged message.
    std::optional<Entry> next();

    /// Returns the share that has been read, from 0 to 1, if the length is known.
    std::optional<double> progress() const;

private:
    struct Block {
        std::chrono::nanoseconds time;
        std::string bytes;
        bool more;
    };

    std::optional<Block> nextBlock(std::size_t sizeBefore);
    [[noreturn]] void refuse(std::uint64_t size, std::uint64_t got) const;
    [[noreturn]] void refuseLength(std::uint64_t size) const;

    const StopSignals& stop;
    InputFile file;
    std::size_t capacity;
    std::uint64_t position = 0; ///< of the next block
    std::uint64_t messages = 0;
};

} // namespace rk::tools
