#pragma once

#include "MessageSink.h"

#include <cstdint>
#include <memory>

namespace rk::tools {

class Codec;
class Complaints;
class Output;

/// Prints messages. One that cannot be decoded is complained about, and the next one awaited.
class PrintingSink : public MessageSink {
public:
    PrintingSink(Codec& codec, Output& output, Complaints& complaints);

    void take(std::string_view block, Clock::time_point arrival) override;
    void pause(Clock::time_point now) override;
    void finish(Clock::time_point now) override;

private:
    Codec& codec;
    Output& output;
    Complaints& complaints;
    std::uint64_t messages = 0;
};

} // namespace rk::tools
