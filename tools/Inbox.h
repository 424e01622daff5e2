#pragma once

#include "MessageSink.h"

#include <rk/socket/Socket.h>

#include <memory>
#include <optional>

namespace rk::tools {

class Complaints;
class StopSignals;

/// Takes messages out of a socket, without ever being deaf to a request to stop.
class Inbox {
public:
    using Clock = std::chrono::steady_clock;

    enum class Event {
        Message,
        Nothing,
        Stop
    };

    /// `longest`: of the messages that are received, in bytes.
    Inbox(rk::socket::Socket& socket, std::size_t longest, const StopSignals& stop, Complaints& complaints);

    /// Whether a message is there, without waiting. Throws std::runtime_error.
    Event look();

    /// Waits for a message until `deadline`, or for a tenth of a second if that comes first. Throws std::runtime_error.
    Event wait(Clock::time_point deadline);

    /// The message that is there, or will come. Nothing if it is too long, which is complained about.
    std::optional<Received> receive();

    /// Whether there is more to receive, also when told to stop. A request or reply socket that has received something
    /// has more only when that was part of a message.
    bool holdsMore();

private:
    Event poll(std::chrono::milliseconds limit);

    rk::socket::Socket& socket;
    const StopSignals& stop;
    Complaints& complaints;
    std::size_t capacity;
    std::unique_ptr<char[]> buffer;
    std::uint64_t received = 0;
};

} // namespace rk::tools
