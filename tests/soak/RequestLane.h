#pragma once

#include "soak/Lane.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <memory>

namespace rk::tests::soak {

/// Sends the request back, unless the request says "throw" or "say nothing".
class Answerer : public socket::utils::SocketListener {
public:
    explicit Answerer(const std::string& listenerName);
    ~Answerer() override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override;
};

/// A client and a listener. The client jams, the handler fails, the listener is restarted; every request gets its own
/// reply, those that a repair has lost after they have been repeated.
class RequestLane : public Lane {
public:
    RequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

    void step() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(40); }

private:
    void restartListener();
    void failInHandler(const std::string& how);
    void jam();
    void ask(std::chrono::milliseconds patienceForEach);
    std::string nextRequest();
    void send(const std::string& request);
    bool replyComes(const std::string& request, std::chrono::milliseconds patienceForEach);

    Answerer listener;
    socket::Socket client;
    std::uint64_t number = 0;
};

} // namespace rk::tests::soak
