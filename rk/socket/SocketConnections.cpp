#include <rk/socket/Socket.h>

namespace rk::socket {

namespace {

/// Returns the same string for equal endpoints, and different strings for others.
std::string keyOf(const SocketEndpoint& endpoint) {
    const std::string key = std::to_string(endpoint.transport) + " " + endpoint.address;
    return endpoint.transport == Transport::Tcp ? key + ":" + std::to_string(endpoint.port) : key;
}

} // namespace

bool Socket::Connections::contains(const SocketEndpoint& target) const {
    return keys.count(keyOf(target)) != 0;
}

void Socket::Connections::add(const SocketEndpoint& target, unsigned int receiveTimeout) {
    list.emplace_back(target, receiveTimeout);
    keys.insert(keyOf(target));
}

void Socket::Connections::clear() {
    list.clear();
    keys.clear();
}

} // namespace rk::socket
