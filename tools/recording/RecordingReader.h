#pragma once

#include "system/InputFile.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

/// Reads a recording, block by block.
class RecordingReader {
public:
    struct Entry {
        std::chrono::nanoseconds time; ///< since the first one
        std::string block;
    };

    /// Throws std::runtime_error with the reason: cannot be read, is no recording, is one of another version.
    RecordingReader(const std::string& path, const StopSignals& stop);

    /// The next block, or nothing at the end or when told to stop. Throws std::runtime_error that names the place when
    /// the recording ends within a block.
    std::optional<Entry> next();

    /// How much has been read, from 0 to 1, if the length is known.
    std::optional<double> progress() const;

private:
    [[noreturn]] void refuse(std::uint64_t size, std::size_t got) const;

    const StopSignals& stop;
    InputFile file;
    std::uint64_t position = 0;
    std::uint64_t blocks = 0;
};

} // namespace rk::tools
