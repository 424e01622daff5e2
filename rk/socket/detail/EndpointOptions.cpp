#include <rk/socket/detail/EndpointOptions.h>
#include <rk/socket/detail/ListenAddresses.h>
#include <rk/socket/detail/Pattern.h>

#include <zmq.h>

#include <algorithm>
#include <stdexcept>

namespace rk::socket::detail {

namespace {

/// When the system probes an idle connection, in seconds. Several probes, so that a lost packet does not end it.
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

void EndpointOptions::set(Protocol::Protocol protocol, const SocketEndpoint& endpoint,
                          const NetworkSettings& settings) const {
    if (settings.maxMessageSize && binds(protocol)) {
        setOption(ZMQ_MAXMSGSIZE, "ZMQ_MAXMSGSIZE", &*settings.maxMessageSize, sizeof *settings.maxMessageSize);
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

void EndpointOptions::setPeerTimeout(Protocol::Protocol protocol, unsigned int seconds) const {
    constexpr int systemDefault = -1;
    constexpr int longestAttempt = 5; // so that a machine is found soon after it is back
    const int total = seconds == 0 ? 0 : std::max(2, static_cast<int>(seconds));
    if (total == 0) {
        setNumber(ZMQ_TCP_KEEPALIVE, "ZMQ_TCP_KEEPALIVE", systemDefault);
    } else {
        const Keepalive keepalive(total);
        setNumber(ZMQ_TCP_KEEPALIVE, "ZMQ_TCP_KEEPALIVE", 1);
        setNumber(ZMQ_TCP_KEEPALIVE_IDLE, "ZMQ_TCP_KEEPALIVE_IDLE", keepalive.idle);
        setNumber(ZMQ_TCP_KEEPALIVE_INTVL, "ZMQ_TCP_KEEPALIVE_INTVL", keepalive.interval);
        setNumber(ZMQ_TCP_KEEPALIVE_CNT, "ZMQ_TCP_KEEPALIVE_CNT", keepalive.probes);
    }
    if (connects(protocol)) {
        // The system compares this with the age of the connection at each probe: a little less meets the last one. Sockets
        // that bind do without, because it also ends connections to peers that pause reading.
        setNumber(ZMQ_TCP_MAXRT, "ZMQ_TCP_MAXRT", std::max(0, total * 1000 - 500));
        setNumber(ZMQ_CONNECT_TIMEOUT, "ZMQ_CONNECT_TIMEOUT", std::min(total, longestAttempt) * 1000);
    }
}

void EndpointOptions::setNumber(int option, const char* name, int value) const {
    setOption(option, name, &value, sizeof value);
}

void EndpointOptions::setOption(int option, const char* name, const void* value, std::size_t size) const {
    if (zmq_setsockopt(socket, option, value, size) < 0) {
        const int error = zmq_errno();
        throw std::runtime_error(std::string("Socket: Error setting ") + name + " " + zmq_strerror(error) + " on " +
                                 header);
    }
}

} // namespace rk::socket::detail
