#pragma once

#include "MessageSink.h"

namespace rk::tools {

class Codec;
class Complaints;
class Output;

/// Prints messages. One that cannot be decoded is complained about, and the next one awaited.
class PrintingSink : public MessageSink {
public:
    PrintingSink(Codec& codec, Output& output, Complaints& complaints);

    void take(const Received& message) override;
    void pause(Clock::time_point now) override;
    void finish(Clock::time_point now) override;

private:
    Codec& codec;
    Output& output;
    Complaints& complaints;
};

} // namespace rk::tools
