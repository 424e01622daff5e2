#include "RecordingProxy.h"

#include "Endpoints.h"

#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::tests {

namespace {

sockaddr_in localAddress(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int listenOn(unsigned short port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int reuse = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    const sockaddr_in address = localAddress(port);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 1) != 0) {
        throw std::runtime_error("cannot listen");
    }
    return listener;
}

int connectTo(unsigned short port) {
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = localAddress(port);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect");
    }
    return connection;
}

} // namespace

RecordingProxy::RecordingProxy(unsigned short target)
    : front(freshEndpoint(socket::Transport::Tcp)),
      listener(listenOn(front.port)),
      thread([this, target] { forward(target); }) {}

RecordingProxy::~RecordingProxy() {
    ending = true;
    ::shutdown(listener, SHUT_RDWR);
    thread.join();
    ::close(listener);
}

std::string RecordingProxy::bytes() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return recorded;
}

void RecordingProxy::forward(unsigned short target) {
    const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        return;
    }
    const int server = connectTo(target);
    pollfd ends[]{{client, POLLIN, 0}, {server, POLLIN, 0}};
    for (bool open = true; open && !ending;) {
        ::poll(ends, 2, 10);
        for (int from = 0; from < 2 && open; ++from) {
            char buffer[4096];
            const ssize_t size = ends[from].revents != 0 ? ::recv(ends[from].fd, buffer, sizeof buffer, 0) : 0;
            open = ends[from].revents == 0 || size > 0;
            if (size > 0) {
                const std::lock_guard<std::mutex> lock(mutex);
                recorded.append(buffer, static_cast<std::size_t>(size));
                ::send(ends[1 - from].fd, buffer, static_cast<std::size_t>(size), MSG_NOSIGNAL);
            }
        }
    }
    ::close(client);
    ::close(server);
}

} // namespace rk::tests
