#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace rk::tools {

class Context;

/// Watches the connection of a socket that connects.
class Connection {
public:
    using Clock = std::chrono::steady_clock;

    Connection(const Context& context, void* socket);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Reads the events since the last call.
    void update();

    /// Returns whether a handshake with a socket of the right type has succeeded.
    bool wasMade() const { return made; }

    /// Returns whether ZeroMQ does not reconnect, as after a protocol error or a message that is too long.
    bool isGivenUp(Clock::time_point now) const;

private:
    void* events;
    bool made = false;
    std::optional<Clock::time_point> lost; ///< without an attempt since then
};

} // namespace rk::tools
