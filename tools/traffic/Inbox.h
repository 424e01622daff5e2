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

/// What is received, and for how long a message is awaited.
struct InboxSettings {
    std::size_t maxSize = 64UL * 1024 * 1024; ///< of a message, in bytes
    std::optional<std::chrono::nanoseconds> timeout;
    bool timed = true; ///< whether the time of arrival is needed; reading the clock takes as long as a short message
};

/// Takes messages out of sockets, without ever being deaf to a request to stop.
class Inbox {
public:
    using Clock = std::chrono::steady_clock;

    enum class Event {
        Message,
        TooLong, ///< it is left out, and reported
        Timeout,
        Stop
    };

    /// The sockets are open. They and the sinks outlive the inbox.
    Inbox(std::vector<Wire*> wires, const MessageSinks& sinks, const InboxSettings& settings, const StopSignals& stop,
          Complaints& complaints);

    /// Waits for the next message, and lets the sinks pause in the meantime. The timeout begins at `start`, or else when
    /// there is nothing left to take. When it is over, reports that there was no `thing`. Throws std::runtime_error.
    Event next(const char* thing, std::optional<Clock::time_point> start = std::nullopt);

    /// The message of the last event.
    const std::vector<std::string_view>& parts() const { return frames.parts(); }

    /// Gives the message to each sink.
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
    std::size_t capacity;
    bool timed;
    std::optional<std::chrono::nanoseconds> timeout;
    Frames frames;
    std::size_t turn = 0; ///< the socket that the last message came from
    std::uint64_t received = 0;
    Clock::time_point arrival{};
    Clock::time_point begin = Clock::now();
    std::set<std::string> diagnosed; ///< endpoints
};

} // namespace rk::tools
