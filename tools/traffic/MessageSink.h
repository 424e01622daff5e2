#pragma once

#include "messages/MessageCodec.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

class Complaints;
class Output;
class StopSignals;

/// What becomes of received messages.
class MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~MessageSink() = default;

    virtual void take(const Received& message) = 0;

    /// No message is waiting: the time to hand on what has been kept back.
    virtual void pause(Clock::time_point now) = 0;

    /// Whether there is something that only `pause` hands on.
    virtual bool keepsBack() const { return false; }

    /// When `pause` has to be called at the latest.
    virtual Clock::time_point due() const { return Clock::time_point::max(); }

    /// There will be no more messages.
    virtual void finish(Clock::time_point now) = 0;
};

using MessageSinks = std::vector<std::unique_ptr<MessageSink>>;

/// Prints messages. One that cannot be decoded is reported, and the next one awaited.
std::unique_ptr<MessageSink> makePrintingSink(MessageCodec& codec, Output& output, Complaints& complaints);

/// Writes messages into the recording at `path`, and shows how many on standard error. `expected`: how many there will
/// be, if that is known.
std::unique_ptr<MessageSink> makeRecordingSink(const std::string& path, std::optional<std::uint64_t> expected,
                                               Complaints& complaints, const StopSignals& stop);

/// Shows what comes in: on a terminal in the same place, else in a line for each interval. With several endpoints, a
/// line for each of them.
std::unique_ptr<MessageSink> makeStatisticsSink(Output& output, Complaints& complaints,
                                                std::chrono::nanoseconds interval,
                                                const std::vector<std::string>& endpoints,
                                                std::chrono::steady_clock::time_point start);

} // namespace rk::tools
