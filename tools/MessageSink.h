#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace rk::tools {

/// A received message. Its bytes are there until the next one is received.
struct Received {
    std::uint64_t number; ///< beginning at 1
    std::string_view bytes;
    std::chrono::steady_clock::time_point arrival;
};

/// What becomes of received messages.
class MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~MessageSink() = default;

    virtual void take(const Received& message) = 0;

    /// No message is waiting: the time to hand on what has been kept back. Called ten times a second or more often.
    virtual void pause(Clock::time_point now) = 0;

    /// When `pause` has to be called at the latest.
    virtual Clock::time_point due() const { return Clock::time_point::max(); }

    /// There will be no more messages.
    virtual void finish(Clock::time_point now) = 0;
};

} // namespace rk::tools
