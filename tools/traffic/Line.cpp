#include "traffic/Line.h"

#include "system/StopSignals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

namespace rk::tools {

namespace {

using rk::socket::SocketEndpoint;

void refuse(int error) {
    if (error == ECONNREFUSED || error == ENOENT) {
        throw Trouble(std::string("nothing listens there: ") + std::strerror(error));
    }
    if (error == ETIMEDOUT || error == EAGAIN) {
        throw Trouble("no answer to the attempt to connect: the host is down, a firewall drops it, or the listener is "
                      "stuck");
    }
    if (error != 0) {
        throw Trouble(std::string("cannot connect: ") + std::strerror(error));
    }
}

} // namespace

void Line::connectTo(const SocketEndpoint& endpoint) {
    if (endpoint.transport == rk::socket::Transport::Ipc) {
        connectToFile(endpoint.address);
    } else {
        connectToHost(endpoint);
    }
}

std::string Line::listen() {
    // Without a name, the system chooses an abstract one.
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    socklen_t size = sizeof address.sun_family;
    descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    auto* const pointer = reinterpret_cast<sockaddr*>(&address);
    if (descriptor < 0 || ::bind(descriptor, pointer, size) != 0 || ::listen(descriptor, 1) != 0) {
        refuse(errno);
    }
    size = sizeof address;
    ::getsockname(descriptor, pointer, &size);
    return "ipc://@" + std::string(&address.sun_path[1], size - offsetof(sockaddr_un, sun_path) - 1);
}

void Line::accept() {
    const int connection = await(POLLIN) ? ::accept4(descriptor, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC) : -1;
    close();
    descriptor = connection;
}

void Line::write(std::string_view bytes) const {
    static_cast<void>(!::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

std::string Line::read(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size && !closed && await(POLLIN)) {
        bytes += readSome(size - bytes.size());
    }
    return bytes;
}

std::string Line::readSome(std::size_t size) {
    std::string bytes(size, '\0');
    const ssize_t result = ::recv(descriptor, bytes.data(), size, 0);
    closed = result == 0 || (result < 0 && errno != EAGAIN && errno != EINTR);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(result, 0)));
    return bytes;
}

void Line::close() {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

bool Line::await(short event, const Line* other) const {
    std::array<pollfd, 3> items = {{{descriptor, event, 0},
                                    {other != nullptr ? other->descriptor : -1, POLLIN, 0},
                                    {stop.descriptor(), POLLIN, 0}}};
    return ::poll(items.data(), items.size(), static_cast<int>(limit.count())) > 0 && !stop.requested();
}

/// Returns the error number, or 0.
int Line::tryAddress(int family, const sockaddr* address, socklen_t length) {
    close();
    descriptor = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return errno;
    }
    if (::connect(descriptor, address, length) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS) {
        return errno;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (!await(POLLOUT)) {
        return ETIMEDOUT;
    }
    ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

void Line::connectToFile(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw Trouble("the path is too long");
    }
    path.copy(address.sun_path, path.size());
    const bool isAbstract = path.front() == '@';
    if (isAbstract) {
        address.sun_path[0] = '\0';
    }
    const auto length = offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1);
    refuse(tryAddress(AF_UNIX, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(length)));
}

void Line::connectToHost(const SocketEndpoint& endpoint) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_family = ipv6 ? AF_UNSPEC : AF_INET;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(endpoint.port);
    const bool isBracketed = endpoint.address.front() == '[' && endpoint.address.back() == ']';
    const std::string host = isBracketed ? endpoint.address.substr(1, endpoint.address.size() - 2) : endpoint.address;
    const int failure = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, ::freeaddrinfo);
    if (failure != 0) {
        throw Trouble(isBracketed && !ipv6 ? "IPv6 needs --ipv6"
                                           : "there is no host '" + endpoint.address + "': " + ::gai_strerror(failure));
    }
    int error = 0;
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        error = tryAddress(address->ai_family, address->ai_addr, address->ai_addrlen);
        if (error == 0) {
            return;
        }
    }
    refuse(error);
}

} // namespace rk::tools
