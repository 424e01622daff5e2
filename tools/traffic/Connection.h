#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace rk::tools {

class Context;

/// Follows the connection of a socket that connects.
class Connection {
public:
    using Clock = std::chrono::steady_clock;

    /// Watches `socket` from now on.
    Connection(const Context& context, void* socket);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Takes note of what has happened.
    void update();

    /// Whether the other side speaks, or has spoken, ZeroMQ with a socket of the right type.
    bool wasMade() const { return made; }

    /// ZeroMQ gives up a connection on which the other side breaks the protocol or sends a message that is too long.
    bool isGivenUp(Clock::time_point now) const;

private:
    void* events;
    bool made = false;
    std::optional<Clock::time_point> lost; ///< and since then not tried again
};

} // namespace rk::tools
