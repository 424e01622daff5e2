#include "endurance/soak/Lane.h"

#include <rk/socket/Socket.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace rk::tests::soak {

namespace {

bool accepts(int family, const void* address, socklen_t size) {
    const int probe = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool accepted = ::connect(probe, static_cast<const sockaddr*>(address), size) == 0;
    ::close(probe);
    return accepted;
}

/// Returns whether the endpoint accepts connections. ZeroMQ closes a socket in the background.
bool isListenedOn(const socket::SocketEndpoint& endpoint) {
    if (endpoint.transport == socket::Transport::Tcp) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(endpoint.port);
        return accepts(AF_INET, &address, sizeof address);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    endpoint.address.copy(address.sun_path, sizeof address.sun_path - 1);
    return endpoint.transport == socket::Transport::Ipc && accepts(AF_UNIX, &address, sizeof address);
}

using Clock = std::chrono::steady_clock;

constexpr unsigned receiveTimeout = 20;
/// A server that starts within this time leaves ZeroMQ enough of the two seconds to connect and deliver.
constexpr std::chrono::milliseconds soon{500};
constexpr std::chrono::milliseconds lingerAndMore{3000};

class ClosingLane : public Lane {
public:
    ClosingLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
        : Lane("closing", std::chrono::milliseconds(250), transport, seed, allFigures),
          server(name + "-server", socket::ClosePolicy::DropPending) {}

    void step() override {
        using namespace socket::ClosePolicy;
        if (isListenedOn(endpoint)) {
            return; // because the server of the last step would receive the request
        }
        const ClosePolicy policy = onceIn(3) ? DropPending : onceIn(2) ? LingerTwoSeconds : WaitForDelivery;
        // ZeroMQ never releases a client of an unbound inproc name.
        if (!reconnectsByItself) {
            openServer();
        }
        sendAndClose(policy);
        const Clock::time_point closed = Clock::now();
        if (reconnectsByItself) {
            openServer();
        }
        if (policy != DropPending) {
            receiveRequest(policy == WaitForDelivery || Clock::now() - closed < soon);
        }
        server.close();
    }

private:
    void openServer() { server.createAndConnect(socket::Protocol::Rep, endpoint, receiveTimeout); }

    void sendAndClose(socket::ClosePolicy::ClosePolicy policy) {
        socket::Socket client(name + "-client", policy);
        client.createAndConnect(socket::Protocol::Req, endpoint, 0);
        ++number;
        client.send(&number, sizeof number);
    }

    void receiveRequest(bool promised) {
        const std::chrono::milliseconds time = promised ? std::chrono::milliseconds(patience) : lingerAndMore;
        std::string error;
        if (server.poll(static_cast<unsigned>(time.count()), error) != socket::PollResult::Input) {
            if (promised) {
                breach("request " + std::to_string(number) + " is lost, against its close policy");
            }
            return;
        }
        std::uint64_t received = 0;
        const int size = server.receive(&received, sizeof received);
        if (size != sizeof received || received != number) {
            breach("received " + std::to_string(received) + " instead of " + std::to_string(number));
        }
        ++figures.deliveries;
        if (onceIn(5)) {
            jam();
        }
    }

    /// Receives again without having replied. The socket is rebuilt and receives no message.
    void jam() {
        ++figures.jams;
        std::uint64_t received = 0;
        try {
            server.receive(&received, sizeof received);
            breach("received " + std::to_string(received) + ", which no client has sent again");
        } catch (const std::runtime_error&) {
            // The receive times out.
        }
    }

    socket::Socket server;
    std::uint64_t number = 0;
};

} // namespace

std::unique_ptr<Lane> makeClosingLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures) {
    return std::make_unique<ClosingLane>(transport, seed, figures);
}

} // namespace rk::tests::soak
