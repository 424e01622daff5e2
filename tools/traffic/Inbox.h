#pragma once

#include "traffic/Frames.h"
#include "traffic/MessageSink.h"

#include <zmq.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace rk::tools {

class Complaints;
class StopSignals;
class Wire;

/// Receives messages from sockets. A signal ends each wait.
class Inbox {
public:
    using Clock = std::chrono::steady_clock;

    enum class Event {
        Message,
        TooLong, ///< reported and left out
        Timeout, ///< reported
        Stop
    };

    /// The sockets are open. They and the sinks outlive the inbox. `timed` says whether the sinks need the time of
    /// arrival: reading the clock takes as long as receiving a short message.
    Inbox(std::vector<Wire*> wires, const MessageSinks& sinks, std::optional<std::chrono::nanoseconds> timeout,
          bool timed, const StopSignals& stop, Complaints& complaints);

    /// Waits for the next message, a `thing`, while the sinks pause. The timeout begins at `start`, by default when no
    /// message is left. Throws std::runtime_error if a socket fails.
    Event next(const char* thing, std::optional<Clock::time_point> start = std::nullopt);

    /// The message of the last event.
    const std::vector<std::string_view>& parts() const { return frames.parts(); }

    /// Gives that message to each sink.
    void handOn() const;

private:
    bool take();
    bool await(std::optional<Clock::time_point> start);
    bool poll(Clock::time_point deadline);
    void lookAfter(Wire& wire, Clock::time_point now);
    void lookAfterConnections();
    void reportTimeout(const char* thing);

    std::vector<Wire*> wires;
    const MessageSinks& sinks;
    std::vector<zmq_pollitem_t> items;
    const StopSignals& stop;
    Complaints& complaints;
    std::optional<std::chrono::nanoseconds> timeout;
    bool timed;
    Frames frames;
    std::size_t turn = 0; ///< the socket of the last message
    std::uint64_t received = 0;
    Clock::time_point arrival{};
    Clock::time_point begin = Clock::now();
    std::set<std::string> diagnosed; ///< the endpoints that were probed
};

} // namespace rk::tools
