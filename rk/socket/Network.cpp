#include <rk/detail/Immortal.h>
#include <rk/socket/Network.h>
#include <rk/socket/detail/ListenAddresses.h>
#include <rk/socket/detail/NetworkSettings.h>

#include <algorithm>
#include <limits>
#include <mutex>
#include <stdexcept>

namespace rk::socket {

namespace {

using detail::NetworkSettings;

constexpr unsigned int longestPeerTimeout = 32767; // limit of the system's keepalive options
constexpr int mostSockets = 65535;                 // ZeroMQ's ZMQ_SOCKET_LIMIT
// The limit also applies to ZeroMQ's handshake, whose longest command has 38 bytes.
constexpr std::int64_t leastMessageSize = 64;

struct ProcessSettings {
    std::mutex mutex;
    NetworkSettings settings;
    std::optional<int> maxSockets;
    bool hasContext = false;
};

/// Never destroyed, because sockets are rebuilt until the process ends.
ProcessSettings& ofProcess() {
    static rk::detail::Immortal<ProcessSettings> settings;
    return *settings;
}

template <class Value>
void change(Value NetworkSettings::* setting, const Value& value) {
    ProcessSettings& process = ofProcess();
    const std::lock_guard<std::mutex> lock(process.mutex);
    process.settings.*setting = value;
}

[[noreturn]] void refuseArgument(const std::string& reason) {
    throw std::invalid_argument("Network: " + reason);
}

} // namespace

NetworkSettings detail::NetworkSettings::ofProcess() {
    ProcessSettings& process = socket::ofProcess();
    const std::lock_guard<std::mutex> lock(process.mutex);
    return process.settings;
}

std::optional<int> detail::NetworkSettings::takeMaxSockets() {
    ProcessSettings& process = socket::ofProcess();
    const std::lock_guard<std::mutex> lock(process.mutex);
    process.hasContext = true;
    return process.maxSockets;
}

void Network::listenOn(const std::string& host) {
    const bool hasColon = host.find(':') != std::string::npos;
    if (hasColon && !detail::isIpv6Address(host)) {
        refuseArgument("Cannot listen on " + host + ": a host without port and transport is needed");
    }
    change(&NetworkSettings::listenHost, host);
}

void Network::setPeerTimeout(unsigned int seconds) {
    if (seconds > longestPeerTimeout) {
        refuseArgument("Peer timeout of " + std::to_string(seconds) + " seconds: at most " +
                       std::to_string(longestPeerTimeout) + " possible");
    }
    change(&NetworkSettings::peerTimeout, std::optional(seconds));
}

void Network::setSilenceLimit(unsigned int seconds) {
    change(&NetworkSettings::silenceLimit, seconds);
}

void Network::setMaxMessageSize(std::int64_t bytes) {
    if (bytes == 0 || bytes < -1) {
        refuseArgument("Message size of " + std::to_string(bytes) + " bytes: at least 1, or -1 for no limit");
    }
    change(&NetworkSettings::maxMessageSize, std::optional(bytes == -1 ? bytes : std::max(bytes, leastMessageSize)));
}

void Network::setQueueSize(int messages) {
    if (messages < 0) {
        refuseArgument("Queue size of " + std::to_string(messages) + " messages: at least 1, or 0 for no limit");
    }
    change(&NetworkSettings::queueSize, std::optional(messages));
}

void Network::setMaxSockets(int sockets) {
    if (sockets < 1 || sockets > mostSockets) {
        refuseArgument("Limit of " + std::to_string(sockets) + " sockets: 1 to " + std::to_string(mostSockets) +
                       " possible");
    }
    ProcessSettings& process = ofProcess();
    const std::lock_guard<std::mutex> lock(process.mutex);
    if (process.hasContext) {
        throw std::logic_error("Network: The limit of sockets cannot change after the first socket");
    }
    process.maxSockets = sockets;
}

void Network::setIpv6(bool enabled) {
    change(&NetworkSettings::ipv6, std::optional(enabled));
}

} // namespace rk::socket
