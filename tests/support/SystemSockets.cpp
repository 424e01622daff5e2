#include "SystemSockets.h"

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace rk::tests {

namespace {

int open(int family) {
    return ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

sockaddr_in addressOf(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

void bindTo(int listener, const void* address, socklen_t length) {
    const int reuse = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    if (::bind(listener, static_cast<const sockaddr*>(address), length) != 0 || ::listen(listener, 16) != 0) {
        ::close(listener);
        throw std::runtime_error("cannot listen");
    }
}

int listenOn(const socket::SocketEndpoint& endpoint) {
    const bool onTcp = endpoint.transport == socket::Transport::Tcp;
    const int listener = open(onTcp ? AF_INET : AF_UNIX);
    if (onTcp) {
        const sockaddr_in address = addressOf(endpoint.port);
        bindTo(listener, &address, sizeof address);
    } else {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        endpoint.address.copy(address.sun_path, sizeof address.sun_path - 1);
        bindTo(listener, &address, sizeof address);
    }
    return listener;
}

int connectTo(unsigned short port) {
    const int connection = open(AF_INET);
    const sockaddr_in address = addressOf(port);
    if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(connection);
        throw std::runtime_error("cannot connect");
    }
    return connection;
}

} // namespace

SystemConnection::SystemConnection(unsigned short port) : SystemConnection(Accepted{connectTo(port)}) {}

SystemConnection::SystemConnection(Accepted accepted) : handle(accepted.descriptor) {
    const timeval patience{20, 0};
    ::setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

SystemConnection::~SystemConnection() {
    ::close(handle);
}

void SystemConnection::send(const std::string& bytes) const {
    ::send(handle, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

std::string SystemConnection::receive() const {
    char buffer[4096];
    const ssize_t size = ::recv(handle, buffer, sizeof buffer, 0);
    return size < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(size));
}

bool SystemConnection::waitForEnd() const {
    char buffer[4096];
    ssize_t size = 0;
    while ((size = ::recv(handle, buffer, sizeof buffer, 0)) > 0) {
    }
    return size == 0 || errno == ECONNRESET;
}

SystemListener::SystemListener(const socket::SocketEndpoint& endpoint) : handle(listenOn(endpoint)) {}

SystemListener::~SystemListener() {
    ::close(handle);
}

SystemConnection SystemListener::accept() const {
    return SystemConnection(SystemConnection::Accepted{::accept4(handle, nullptr, nullptr, SOCK_CLOEXEC)});
}

void SystemListener::end() const {
    ::shutdown(handle, SHUT_RDWR);
}

bool WrongServer::answerOne() const {
    const SystemConnection client = listener.accept();
    client.send("HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n" + std::string(64, ' '));
    return client.waitForEnd();
}

} // namespace rk::tests
