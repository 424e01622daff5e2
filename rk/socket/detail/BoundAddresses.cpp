#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/ContextGate.h>
#include <rk/socket/detail/EndpointOptions.h>
#include <rk/socket/detail/ListenAddresses.h>

#include <zmq.h>

#include <fcntl.h>
#include <string>

namespace rk::socket::detail {

namespace {

bool isChosenBySystem(const SocketEndpoint& endpoint) {
    return (endpoint.transport == Transport::Tcp && endpoint.port == 0) ||
           (endpoint.transport == Transport::Ipc && endpoint.address == "*");
}

/// Returns a descriptor that refers to the file of an IPC address without opening it. Returns -1 if there is none.
int referenceTo(const SocketEndpoint& endpoint) {
#ifdef O_PATH
    if (endpoint.transport == Transport::Ipc) {
        return open(endpoint.address.c_str(), O_PATH | O_CLOEXEC);
    }
#endif
    return -1;
}

} // namespace

SocketEndpoint boundEndpoint(void* socket, const SocketEndpoint& target) {
    char text[256];
    std::size_t size = sizeof text;
    if (!isChosenBySystem(target) || zmq_getsockopt(socket, ZMQ_LAST_ENDPOINT, text, &size) < 0) {
        return target;
    }
    SocketEndpoint bound = SocketEndpoint::FromString(text);
    if (bound.transport == Transport::Tcp) {
        bound.address = target.address; // ZeroMQ reports the address of the interface
    }
    return bound;
}

BoundAddresses::Address::Address(const SocketEndpoint& bound, const std::shared_ptr<const Credentials>& boundWith)
    : endpoint(bound), credentials(boundWith), file(referenceTo(bound)) {}

SocketEndpoint BoundAddresses::Address::reachable() const {
    SocketEndpoint target = endpoint;
    if (file.isOpen()) {
        target.address = "/proc/self/fd/" + std::to_string(file.get()); // the file may have been renamed or removed
    } else if (target.transport == Transport::Tcp && target.address == "*") {
        target.address = "127.0.0.1";
    }
    return target;
}

void BoundAddresses::add(const SocketEndpoint& endpoint, const std::shared_ptr<const Credentials>& credentials) {
    addresses.emplace_back(endpoint, credentials);
}

void BoundAddresses::clear() noexcept {
    addresses.clear();
}

bool BoundAddresses::connect(void* socket) const {
    bool connected = false;
    for (const Address& address : addresses) {
        const SocketEndpoint target = address.reachable();
        if (isIpv6Address(target.address)) {
            const int on = 1;
            zmq_setsockopt(socket, ZMQ_IPV6, &on, sizeof on);
        }
        if (address.credentials) {
            EndpointOptions(socket, "WakeUpCall").setForWakeUp(target, *address.credentials);
        }
        connected = ContextGate::ofProcess().connect(socket, target.toString(Protocol::Req)) == 0 || connected;
    }
    return connected;
}

} // namespace rk::socket::detail
