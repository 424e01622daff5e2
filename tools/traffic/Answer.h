#pragma once

#include "system/ShellCommand.h"
#include "traffic/Wire.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tools {

class MessageCodec;
class Complaints;
class StopSignals;

/// How `rep` answers. One of the four is set.
struct AnswerSettings {
    std::optional<std::string> text;
    std::optional<std::string> file;
    bool echo = false;
    std::optional<std::string> command;
    ShellLimits limits;
};

/// Returns the reply to a request of these parts. Reports a failure, and returns an empty reply then, so that the client
/// does not wait forever.
using Answer = std::function<Parts(const std::vector<std::string_view>& request)>;

/// Makes the answer of the settings, which must outlive it. Throws std::runtime_error if a fixed reply cannot be read or
/// encoded.
Answer makeAnswer(const AnswerSettings& settings, MessageCodec& codec, Complaints& complaints, const StopSignals& stop);

} // namespace rk::tools
