#pragma once

#include "soak/Figures.h"

#include <rk/socket/SocketEndpoint.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>

namespace rk::tests::soak {

/// One strand of the run: sockets of its own on one transport, and a step that is repeated on one thread.
class Lane {
public:
    /// `kind` and the transport make the lane's name.
    Lane(const std::string& kind, socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);
    virtual ~Lane() = default;
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    virtual void step() = 0;

    /// From the end of one step to the beginning of the next.
    virtual std::chrono::milliseconds pause() const = 0;

    const std::string& name() const { return laneName; }

protected:
    /// True once in `times` calls, on average.
    bool onceIn(unsigned times);

    void breach(const std::string& text);

    Figures& figures;
    const socket::SocketEndpoint endpoint;
    /// Peers in the same process do not connect again by themselves.
    const bool reconnectsByItself;

private:
    const std::string laneName;
    std::mt19937_64 random;
};

} // namespace rk::tests::soak
