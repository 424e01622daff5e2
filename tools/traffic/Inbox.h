#pragma once

#include "traffic/MessageSink.h"

#include <rk/socket/Socket.h>

#include <memory>
#include <optional>

namespace rk::tools {

class Complaints;
class StopSignals;

/// What is received, and for how long a message is awaited.
struct InboxSettings {
    std::size_t maxSize = 64UL * 1024 * 1024; ///< of a message, in bytes
    std::optional<std::chrono::nanoseconds> timeout;
};

/// Takes messages out of a socket, without ever being deaf to a request to stop.
class Inbox {
public:
    using Clock = std::chrono::steady_clock;

    enum class Event {
        Message,
        Nothing,
        Stop
    };

    Inbox(rk::socket::Socket& socket, const InboxSettings& settings, const StopSignals& stop, Complaints& complaints);

    /// Waits for a message, and lets the sinks pause meanwhile. Nothing means that the timeout, which begins at `start`,
    /// is over: complains that there was no `thing`. Throws std::runtime_error.
    Event await(const std::string& thing, Clock::time_point start, const MessageSinks& sinks);

    /// The message that is there, or will come. Nothing if it is too long, which is complained about.
    std::optional<Received> receive();

    /// Whether there is more to receive, also when told to stop. A request or reply socket that has received something
    /// has more only when that was part of a message.
    bool holdsMore();

private:
    /// Waits until `deadline`, or for a tenth of a second if that comes first.
    Event poll(Clock::time_point deadline);

    rk::socket::Socket& socket;
    const StopSignals& stop;
    Complaints& complaints;
    std::size_t capacity;
    std::optional<std::chrono::nanoseconds> timeout;
    std::unique_ptr<char[]> buffer;
    std::uint64_t received = 0;
};

} // namespace rk::tools
