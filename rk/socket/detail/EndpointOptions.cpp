#include <rk/socket/detail/Authenticator.h>
#include <rk/socket/detail/EndpointOptions.h>
#include <rk/socket/detail/ListenAddresses.h>
#include <rk/socket/detail/Pattern.h>

#include <zmq.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>

namespace rk::socket::detail {

namespace {

// ZMQ_ZAP_ENFORCE_DOMAIN, which zmq.h hides as a draft. Without it, ZeroMQ admits every client while no authenticator
// runs.
constexpr int enforceDomain = 93;

constexpr int handshakeMilliseconds = 5000; // a refused client retries after this time

/// The default limit, because a peer sends its first bytes before it is authenticated.
constexpr std::int64_t defaultMessageSize = 16777216; // 16 MiB

/// Returns the limit for encrypted frames. It must admit the frames of the handshake.
std::int64_t encryptedSize(std::int64_t messageSize) {
    constexpr std::int64_t overhead = 33;
    constexpr std::int64_t handshake = 1024;
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max() - overhead;
    return messageSize == -1 ? messageSize : std::max(std::min(messageSize, largest) + overhead, handshake);
}

/// When the system probes an idle connection, in seconds. It sends several probes, so that one lost packet does not
/// close the connection.
struct Keepalive {
    explicit Keepalive(int total)
        : interval(std::max(1, total / 6)), probes(std::min(4, total - 1)), idle(total - interval * probes) {}

    const int interval;
    const int probes;
    const int idle;
};

} // namespace

EndpointOptions::EndpointOptions(void* nativeSocket, const std::string& socketHeader)
    : socket(nativeSocket), header(socketHeader) {}

void EndpointOptions::set(Protocol::Protocol protocol, const SocketEndpoint& endpoint, const NetworkSettings& settings,
                          const Credentials* credentials) const {
    if (binds(protocol)) {
        setMaxMessageSize(endpoint, settings, credentials);
    }
    if (credentials != nullptr) {
        setSecurity(protocol, endpoint, *credentials);
    }
    if (endpoint.transport != Transport::Tcp) {
        return;
    }
    if (settings.ipv6) {
        setNumber(ZMQ_IPV6, "ZMQ_IPV6", *settings.ipv6 && !isIpv4Address(endpoint.address) ? 1 : 0);
    }
    if (settings.peerTimeout) {
        setPeerTimeout(protocol, *settings.peerTimeout);
    }
}

/// With encryption, sets a limit for plain endpoints too. Otherwise they would inherit that of an encrypted endpoint.
void EndpointOptions::setMaxMessageSize(const SocketEndpoint& endpoint, const NetworkSettings& settings,
                                        const Credentials* credentials) const {
    std::optional<std::int64_t> limit = settings.maxMessageSize;
    if (credentials != nullptr) {
        limit = endpoint.transport == Transport::Tcp ? encryptedSize(limit.value_or(defaultMessageSize))
                                                     : limit.value_or(-1);
    }
    if (limit) {
        setOption(ZMQ_MAXMSGSIZE, "ZMQ_MAXMSGSIZE", &*limit, sizeof *limit);
    }
}

void EndpointOptions::setSecurity(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                                  const Credentials& credentials) const {
    if (endpoint.transport != Transport::Tcp) {
        setPlain();
        if (binds(protocol)) {
            setPlainDomain();
        }
    } else if (binds(protocol)) {
        setServer(credentials.own);
    } else {
        const std::string serverKey = credentials.trusted.serverKey(endpoint);
        if (serverKey.empty()) {
            throw std::runtime_error("Socket: No trusted key for " + endpoint.toString(protocol) + " on " + header);
        }
        setClient(serverKey, credentials.own);
    }
}

void EndpointOptions::setForWakeUp(const SocketEndpoint& endpoint, const Credentials& credentials) const {
    if (endpoint.transport == Transport::Tcp) {
        setClient(credentials.own.publicKey, credentials.wakeUp);
    } else {
        setPlain();
    }
}

/// Reads back the options that keep clients out, because a libzmq that ignored them would admit every client.
void EndpointOptions::setServer(const Security::KeyPair& own) const {
    setText(ZMQ_CURVE_SECRETKEY, "ZMQ_CURVE_SECRETKEY", own.secretKey);
    setNumber(ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER", 1);
    setText(ZMQ_ZAP_DOMAIN, "ZMQ_ZAP_DOMAIN", Authenticator::domain);
    setNumber(enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN", 1);
    setNumber(ZMQ_HANDSHAKE_IVL, "ZMQ_HANDSHAKE_IVL", handshakeMilliseconds);
    requireNumber(ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER", 1);
    requireNumber(enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN", 1);
    requireDomain();
}

void EndpointOptions::setClient(const std::string& serverKey, const Security::KeyPair& own) const {
    setText(ZMQ_CURVE_SERVERKEY, "ZMQ_CURVE_SERVERKEY", serverKey);
    setText(ZMQ_CURVE_PUBLICKEY, "ZMQ_CURVE_PUBLICKEY", own.publicKey);
    setText(ZMQ_CURVE_SECRETKEY, "ZMQ_CURVE_SECRETKEY", own.secretKey);
    requireNumber(ZMQ_MECHANISM, "ZMQ_MECHANISM", ZMQ_CURVE);
}

/// Resets the options that an encrypted endpoint of the same socket may have set.
void EndpointOptions::setPlain() const {
    setNumber(ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER", 0);
}

void EndpointOptions::setPlainDomain() const {
    setText(ZMQ_ZAP_DOMAIN, "ZMQ_ZAP_DOMAIN", Authenticator::plainDomain);
    setNumber(enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN", 0);
}

void EndpointOptions::setPeerTimeout(Protocol::Protocol protocol, unsigned int seconds) const {
    constexpr int systemDefault = -1;
    constexpr int longestAttempt = 5; // to reconnect soon after a machine is back
    const int total = seconds == 0 ? 0 : std::max(2, static_cast<int>(seconds));
    setNumber(ZMQ_TCP_KEEPALIVE, "ZMQ_TCP_KEEPALIVE", total == 0 ? systemDefault : 1);
    if (seconds > 0) {
        const Keepalive keepalive(total);
        setNumber(ZMQ_TCP_KEEPALIVE_IDLE, "ZMQ_TCP_KEEPALIVE_IDLE", keepalive.idle);
        setNumber(ZMQ_TCP_KEEPALIVE_INTVL, "ZMQ_TCP_KEEPALIVE_INTVL", keepalive.interval);
        setNumber(ZMQ_TCP_KEEPALIVE_CNT, "ZMQ_TCP_KEEPALIVE_CNT", keepalive.probes);
    }
    if (connects(protocol)) {
        // The system checks this limit at each probe, so it must be slightly less than the time of the last probe. Not
        // for sockets that bind, because it would also close connections to peers that pause reading.
        setNumber(ZMQ_TCP_MAXRT, "ZMQ_TCP_MAXRT", std::max(0, total * 1000 - 500));
        setNumber(ZMQ_CONNECT_TIMEOUT, "ZMQ_CONNECT_TIMEOUT", std::min(total, longestAttempt) * 1000);
    }
}

void EndpointOptions::setNumber(int option, const char* name, int value) const {
    setOption(option, name, &value, sizeof value);
}

void EndpointOptions::setText(int option, const char* name, const std::string& value) const {
    setOption(option, name, value.data(), value.size());
}

void EndpointOptions::requireNumber(int option, const char* name, int value) const {
    int actual = 0;
    std::size_t size = sizeof actual;
    if (zmq_getsockopt(socket, option, &actual, &size) < 0 || actual != value) {
        refuseLost(name);
    }
}

void EndpointOptions::requireDomain() const {
    char actual[256];
    std::size_t size = sizeof actual;
    if (zmq_getsockopt(socket, ZMQ_ZAP_DOMAIN, actual, &size) < 0 || std::string(actual) != Authenticator::domain) {
        refuseLost("ZMQ_ZAP_DOMAIN");
    }
}

void EndpointOptions::refuseLost(const char* name) const {
    throw std::runtime_error(std::string("Socket: ZeroMQ has not kept ") + name + " on " + header);
}

void EndpointOptions::setOption(int option, const char* name, const void* value, std::size_t size) const {
    if (zmq_setsockopt(socket, option, value, size) < 0) {
        const int error = zmq_errno();
        throw std::runtime_error(std::string("Socket: Error setting ") + name + " " + zmq_strerror(error) + " on " +
                                 header);
    }
}

} // namespace rk::socket::detail
