#include "traffic/Keys.h"

#include <zmq.h>

#include <stdexcept>
#include <string_view>

namespace rk::tools {

namespace {

constexpr int enforceDomain = 93;    // ZMQ_ZAP_ENFORCE_DOMAIN, which zmq.h hides as a draft
constexpr int handshakeLimit = 5000; // milliseconds

void set(void* socket, int option, std::string_view value) {
    if (zmq_setsockopt(socket, option, value.data(), value.size()) != 0) {
        throw std::runtime_error(std::string("cannot encrypt: ") + zmq_strerror(zmq_errno()));
    }
}

void set(void* socket, int option, int value) {
    set(socket, option, {reinterpret_cast<const char*>(&value), sizeof value});
}

} // namespace

Keys::Keys(const KeyFiles& files)
    : file(*files.trusted), pair(rk::socket::Security::readKeyFile(*files.own)), trustedKeys(file) {}

void Keys::encryptConnection(void* socket, const rk::socket::SocketEndpoint& endpoint) const {
    const std::string server = trustedKeys.serverKey(endpoint);
    if (server.empty()) {
        throw std::runtime_error(file + ": no key for tcp://" + endpoint.address + ":" + std::to_string(endpoint.port));
    }
    set(socket, ZMQ_CURVE_SERVERKEY, server);
    set(socket, ZMQ_CURVE_PUBLICKEY, pair.publicKey);
    set(socket, ZMQ_CURVE_SECRETKEY, pair.secretKey);
}

void Keys::encryptListener(void* socket) const {
    set(socket, ZMQ_CURVE_SERVER, 1);
    set(socket, ZMQ_CURVE_SECRETKEY, pair.secretKey);
    // Without both, ZeroMQ admits every client when there is no gatekeeper.
    set(socket, ZMQ_ZAP_DOMAIN, "rk-socket");
    set(socket, enforceDomain, 1);
    set(socket, ZMQ_HANDSHAKE_IVL, handshakeLimit);
}

} // namespace rk::tools
