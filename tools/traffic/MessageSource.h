#pragma once

#include "system/InputFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

/// Where the texts to send come from: arguments or files, or standard input if there are neither.
struct SourceSettings {
    std::vector<std::string> messages;
    std::vector<std::string> files;
    bool lines = false; ///< each line of a file is a text
    bool whole = false; ///< all of standard input is one text
};

/// The texts to send.
class MessageSource {
public:
    struct Text {
        std::string text;
        std::string place; ///< where it stands, for complaints: "readings.json, line 3"
    };

    MessageSource(const SourceSettings& settings, const StopSignals& stop);

    /// The next text, or nothing when there are no more. Throws std::runtime_error when a file cannot be read.
    std::optional<Text> next();

    /// Begins again at the first text. False for standard input, which is gone once it is read.
    bool rewind();

private:
    std::optional<Text> nextLine();

    const StopSignals& stop;
    std::vector<std::string> arguments;
    std::vector<std::string> files;
    bool byLine;
    std::size_t nextArgument = 0;
    std::size_t nextFile = 0;
    std::unique_ptr<InputFile> open;
    std::uint64_t lineNumber = 0;
};

} // namespace rk::tools
