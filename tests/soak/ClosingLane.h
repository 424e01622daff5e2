#pragma once

#include "soak/Lane.h"

#include <rk/socket/Socket.h>

namespace rk::tests::soak {

/// Clients that send one raw request and close at once, before the server is there: it gets what their close policy
/// keeps. The server binds the same address every time, and jams now and then.
class ClosingLane : public Lane {
public:
    ClosingLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

    void step() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(250); }

private:
    void openServer();
    void sendAndClose(socket::ClosePolicy::ClosePolicy policy);
    void receiveRequest(bool promised);
    void jam();

    socket::Socket server;
    std::uint64_t number = 0;
};

} // namespace rk::tests::soak
