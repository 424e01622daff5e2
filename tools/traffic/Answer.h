#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace rk::tools {

class Codec;
class Complaints;
class StopSignals;

/// How requests are answered. One of the four is set.
struct AnswerSettings {
    std::optional<std::string> text;
    std::optional<std::string> file;
    bool echo = false;
    std::optional<std::string> command;
};

/// What a request is answered with.
class Answer {
public:
    virtual ~Answer() = default;

    /// The block for `request`. A client that gets none would wait for ever: where there is nothing good to answer, it
    /// is an empty block, and complained about.
    virtual std::string to(std::string_view request) = 0;
};

/// Makes the answer that the settings ask for. `withSchema`: a command is given JSON, and writes JSON. Throws
/// std::runtime_error when a fixed block cannot be read or encoded.
std::unique_ptr<Answer> makeAnswer(const AnswerSettings& settings, bool withSchema, Codec& codec,
                                   Complaints& complaints, const StopSignals& stop);

} // namespace rk::tools
