#pragma once

#include "endurance/soak/Figures.h"
#include "support/Endpoints.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace rk::tests::soak {

/// A message that has not come after this time is lost. It is far longer than a busy machine takes.
constexpr std::chrono::seconds patience{60};

/// One strand of the run: sockets of its own on one transport, and a step that one thread repeats.
class Lane {
public:
    /// \param kind with the transport, the name of the lane
    /// \param betweenSteps from the end of one step to the beginning of the next
    Lane(const std::string& kind, std::chrono::milliseconds betweenSteps, socket::Transport::Transport transport,
         std::uint64_t seed, Figures& allFigures)
        : name(kind + "-" + socket::Transport::ToString(transport)),
          pause(betweenSteps),
          figures(allFigures),
          endpoint(freshEndpoint(transport)),
          reconnectsByItself(transport != socket::Transport::Inproc),
          random(seed) {}
    virtual ~Lane() = default;
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    virtual void step() = 0;

    void breach(const std::string& text) { figures.breach(name + ": " + text); }

    const std::string name;
    const std::chrono::milliseconds pause;

protected:
    /// Returns true once in `times` calls, on average.
    bool onceIn(unsigned times) { return random() % times == 0; }

    Figures& figures;
    const socket::SocketEndpoint endpoint;
    /// Peers in the same process do not reconnect by themselves.
    const bool reconnectsByItself;

private:
    std::mt19937_64 random;
};

/// A client and a listener. The client jams, the handler fails, the listener is restarted. Each request gets its own
/// reply. A request that a repair has lost is repeated.
std::unique_ptr<Lane> makeRequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

/// A publisher and a subscribe listener. Both are restarted, and the handler fails. Once the subscription has arrived,
/// each message arrives until the next restart, once and in order.
std::unique_ptr<Lane> makeFeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

/// Clients that send one request and close at once, before the server is there. The server gets what their close policy
/// keeps. It binds the same address each time, and jams now and then.
std::unique_ptr<Lane> makeClosingLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

} // namespace rk::tests::soak
