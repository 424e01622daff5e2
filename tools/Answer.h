#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace rk::tools {

class Codec;
class Complaints;
struct Settings;
class StopSignals;

/// What a request is answered with.
class Answer {
public:
    virtual ~Answer() = default;

    /// The block for `request`. A client that gets none would wait for ever: where there is nothing good to answer, it
    /// is an empty block, and complained about.
    virtual std::string to(std::string_view request) = 0;
};

/// The one that the settings ask for. Throws std::runtime_error when a fixed block cannot be read or encoded.
std::unique_ptr<Answer> makeAnswer(const Settings& settings, Codec& codec, Complaints& complaints,
                                   const StopSignals& stop);

} // namespace rk::tools
