#pragma once

#include "telemetry.pb.h"

#include <rk/socket/Socket.h>

#include <cstdint>
#include <string>

namespace telemetry {

/// Sends commands to the station and receives the answers. Used by one thread at a time.
class Commander {
public:
    struct Counts {
        std::uint64_t sent = 0;
        std::uint64_t answered = 0;
        std::uint64_t abandoned = 0; ///< commands followed by another before their answer arrived
        std::uint64_t repaired = 0;  ///< commands answered although the previous one was abandoned
    };

    explicit Commander(const std::string& endpoint);

    /// Sends a command and waits for its answer.
    /// \throws std::runtime_error if no answer arrives in time, or it belongs to another command
    Answer ask(Command::Action action, std::uint32_t intervalMs = 0);

    /// Sends a command and does not wait for its answer. ZeroMQ would then refuse to send another command, so the
    /// library repairs the socket when `ask` is called next.
    void abandon(Command::Action action);

    Counts counts() const;

private:
    std::uint64_t send(Command::Action action, std::uint32_t intervalMs);

    rk::socket::Socket socket;
    Counts total;
    bool jammed = false;
};

} // namespace telemetry
