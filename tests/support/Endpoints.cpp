#include "Endpoints.h"

#include "TemporaryFolder.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstddef>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace rk::tests {

namespace {

/// Reserves the port among the test processes until this one ends. Never closes the descriptor.
bool reserve(unsigned short port) {
    const std::string name = "rk-socket-test-port-" + std::to_string(port);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int reservation = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(reservation, reinterpret_cast<const sockaddr*>(&address), length) == 0) {
        return true;
    }
    ::close(reservation);
    return false;
}

bool isFree(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int reuse = 1;
    ::setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    const bool bound = ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(probe);
    return bound;
}

} // namespace

unsigned short freePort() {
    constexpr int first = 10000;
    constexpr int range = 22000;
    static std::atomic<int> next{getpid() * 37 % range};
    for (int tried = 0; tried < range; ++tried) {
        const auto port = static_cast<unsigned short>(first + next++ % range);
        if (isFree(port) && reserve(port)) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

const std::string& temporaryFolder() {
    static const TemporaryFolder folder;
    return folder.path();
}

socket::SocketEndpoint freshEndpoint(socket::Transport::Transport transport) {
    static std::atomic<int> number{0};
    const std::string name = std::to_string(++number);
    switch (transport) {
    case socket::Transport::Tcp:
        return {transport, "127.0.0.1", freePort()};
    case socket::Transport::Ipc:
        return {transport, temporaryFolder() + "/" + name, 0};
    default:
        return {transport, "test-" + name, 0};
    }
}

} // namespace rk::tests
