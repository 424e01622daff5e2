#pragma once

#include "endurance/soak/Figures.h"
#include "support/Endpoints.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

namespace rk::tests::soak {

/// A message that has not arrived after this time is lost. A busy machine takes far less.
constexpr std::chrono::seconds patience{60};

/// One part of the run, with separate sockets on one transport. One thread repeats its step.
class Lane {
public:
    /// \param kind the name of the lane, without the transport
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
    /// False on inproc, where peers do not reconnect.
    const bool reconnectsByItself;

private:
    std::mt19937_64 random;
};

/// A client and a listener. The client jams, the handler fails, and the listener is restarted. Each request gets its
/// own reply. Requests that a repair has lost are sent again.
std::unique_ptr<Lane> makeRequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

/// A publisher and a subscribe listener. Both are restarted, and the handler fails. Between the arrival of the
/// subscription and the next restart, each message arrives once and in order.
std::unique_ptr<Lane> makeFeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

/// Clients that send one request and close at once, before the server starts. The server receives the requests that
/// their close policy keeps. It binds the same address each time, and jams sometimes.
std::unique_ptr<Lane> makeClosingLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

} // namespace rk::tests::soak
