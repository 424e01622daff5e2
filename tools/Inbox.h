#pragma once

#include <rk/socket/Socket.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>

namespace rk::tools {

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

    /// A message. Its bytes are there until the next one is received.
    struct Block {
        std::string_view bytes;
        std::size_t size; ///< more than there are bytes if the message was longer than the capacity
    };

    /// `capacity`: the longest message, in bytes.
    Inbox(rk::socket::Socket& socket, std::size_t capacity, const StopSignals& stop);

    /// Whether a message is there, without waiting. Throws std::runtime_error.
    Event look();

    /// Waits for a message until `deadline`, or for a tenth of a second if that comes first. Throws std::runtime_error.
    Event wait(Clock::time_point deadline);

    /// The message that is there, or will come.
    Block receive();

private:
    Event poll(std::chrono::milliseconds limit);

    rk::socket::Socket& socket;
    const StopSignals& stop;
    std::size_t capacity;
    std::unique_ptr<char[]> buffer;
};

} // namespace rk::tools
