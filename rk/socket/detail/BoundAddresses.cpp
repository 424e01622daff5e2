#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/EndpointOptions.h>
#include <rk/socket/detail/ListenAddresses.h>

#include <zmq.h>

#include <fcntl.h>
#include <unistd.h>

namespace rk::socket::detail {

namespace {

bool isChosenBySystem(const SocketEndpoint& endpoint) {
    return (endpoint.transport == Transport::Tcp && endpoint.port == 0) ||
           (endpoint.transport == Transport::Ipc && endpoint.address == "*");
}

bool isFile(const SocketEndpoint& endpoint) {
    return endpoint.transport == Transport::Ipc && endpoint.address[0] != '@';
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

BoundAddresses::FileReference::FileReference(const std::string& path) {
#ifdef O_PATH
    descriptor = open(path.c_str(), O_PATH | O_CLOEXEC);
#else
    static_cast<void>(path);
#endif
}

BoundAddresses::FileReference::~FileReference() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

std::string BoundAddresses::FileReference::pathOr(const std::string& path) const {
    return descriptor < 0 ? path : "/proc/self/fd/" + std::to_string(descriptor);
}

BoundAddresses::Address::Address(const SocketEndpoint& bound, const std::shared_ptr<const Credentials>& boundWith)
    : endpoint(bound), credentials(boundWith), file(isFile(bound) ? FileReference(bound.address) : FileReference()) {}

void BoundAddresses::add(const SocketEndpoint& endpoint, const std::shared_ptr<const Credentials>& credentials) {
    addresses.emplace_back(endpoint, credentials);
}

void BoundAddresses::clear() noexcept {
    addresses.clear();
}

bool BoundAddresses::connect(void* socket) const {
    bool connected = false;
    for (const Address& address : addresses) {
        SocketEndpoint target = address.endpoint;
        if (target.transport != Transport::Tcp) {
            target.address = address.file.pathOr(target.address);
        } else if (target.address == "*") {
            target.address = "127.0.0.1";
        } else if (isIpv6Address(target.address)) {
            const int on = 1;
            zmq_setsockopt(socket, ZMQ_IPV6, &on, sizeof on);
        }
        if (address.credentials) {
            EndpointOptions(socket, "WakeUpCall").setForWakeUp(target, *address.credentials);
        }
        connected = zmq_connect(socket, target.toString(Protocol::Req).c_str()) == 0 || connected;
    }
    return connected;
}

} // namespace rk::socket::detail
