#pragma once

#include "system/ShellCommand.h"
#include "traffic/Wire.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tools {

class MessageCodec;
class Complaints;
class StopSignals;

/// How requests are answered. One of the four is set.
struct AnswerSettings {
    std::optional<std::string> text;
    std::optional<std::string> file;
    bool echo = false;
    std::optional<std::string> command;
    ShellCommand::Limits limits;
};

/// What a request is answered with.
class Answer {
public:
    virtual ~Answer() = default;

    /// The reply to a request of so many parts. A client that gets none would wait for ever: where there is nothing good to answer, it
    /// is empty, and reported.
    virtual Parts to(const std::vector<std::string_view>& request) = 0;
};

/// Makes the answer that the settings ask for. Throws std::runtime_error when a fixed block cannot be read or encoded.
std::unique_ptr<Answer> makeAnswer(const AnswerSettings& settings, MessageCodec& codec, Complaints& complaints,
                                   const StopSignals& stop);

} // namespace rk::tools
