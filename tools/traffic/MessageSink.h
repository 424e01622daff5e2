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

/// Consumes received messages.
class MessageSink {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~MessageSink() = default;

    virtual void take(const Received& message) = 0;

    /// Flushes, because no message is waiting.
    virtual void pause(Clock::time_point now) = 0;

    /// Returns whether `pause` has something to flush.
    virtual bool keepsBack() const { return false; }

    /// The time of the next `pause`.
    virtual Clock::time_point due() const { return Clock::time_point::max(); }

    /// Ends the work after the last message.
    virtual void finish(Clock::time_point now) = 0;
};

using MessageSinks = std::vector<std::unique_ptr<MessageSink>>;

/// Prints messages. Reports those which cannot be decoded.
std::unique_ptr<MessageSink> makePrintingSink(MessageCodec& codec, Output& output, Complaints& complaints);

/// Writes messages to a recording, and shows the progress on standard error. `expected` is the number of messages, if it
/// is known.
std::unique_ptr<MessageSink> makeRecordingSink(const std::string& path, std::optional<std::uint64_t> expected,
                                               Complaints& complaints, const StopSignals& stop);

/// Prints statistics: on a terminal in place, else a line for each interval and endpoint.
std::unique_ptr<MessageSink> makeStatisticsSink(Output& output, Complaints& complaints,
                                                std::chrono::nanoseconds interval,
                                                const std::vector<std::string>& endpoints,
                                                std::chrono::steady_clock::time_point start);

} // namespace rk::tools
