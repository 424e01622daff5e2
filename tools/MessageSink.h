#pragma once

#include <chrono>
#include <string_view>

namespace rk::tools {

/// What becomes of received messages.
class MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~MessageSink() = default;

    virtual void take(std::string_view block, Clock::time_point arrival) = 0;

    /// No message is waiting: the time to hand on what has been kept back. Called ten times a second or more often.
    virtual void pause(Clock::time_point now) = 0;

    /// There will be no more messages.
    virtual void finish(Clock::time_point now) = 0;
};

} // namespace rk::tools
