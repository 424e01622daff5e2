#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Pattern.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace rk::socket {

namespace {

constexpr std::string_view inprocPrefix = "inproc://";
constexpr std::string_view ipcPrefix = "ipc://";
constexpr std::string_view tcpPrefix = "tcp://";

/// Returns whether `text` begins with `prefix` and is longer.
bool leadsWith(const std::string& text, std::string_view prefix) {
    return text.size() > prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

[[noreturn]] void refuseText(const std::string& text, const char* reason) {
    throw std::runtime_error("Failed deserializing " + text + ": " + reason);
}

SocketEndpoint fromTcpText(const std::string& text) {
    const std::string remainder = text.substr(tcpPrefix.size());
    const std::string::size_type colon = remainder.rfind(':');
    if (colon == std::string::npos) {
        refuseText(text, "cannot extract port");
    }
    const long port = std::strtol(remainder.c_str() + colon + 1, nullptr, 10);
    return {Transport::Tcp, remainder.substr(0, colon), static_cast<unsigned short>(port)};
}

} // namespace

SocketEndpoint::SocketEndpoint(Transport::Transport endpointTransport, const std::string& endpointAddress,
                               unsigned short endpointPort)
    : transport(endpointTransport), address(endpointAddress), port(endpointPort) {}

SocketEndpoint SocketEndpoint::FromString(const std::string& text) {
    if (leadsWith(text, inprocPrefix)) {
        return {Transport::Inproc, text.substr(inprocPrefix.size()), 0};
    }
    if (leadsWith(text, ipcPrefix)) {
        return {Transport::Ipc, text.substr(ipcPrefix.size()), 0};
    }
    if (leadsWith(text, tcpPrefix)) {
        return fromTcpText(text);
    }
    refuseText(text, "cannot extract transport");
}

std::string SocketEndpoint::toString(Protocol::Protocol protocol) const {
    switch (transport) {
    case Transport::Inproc:
        return "inproc://" + address;
    case Transport::Ipc:
        return "ipc://" + address;
    case Transport::Tcp:
        return "tcp://" + (detail::binds(protocol) ? "*" : address) + ":" + std::to_string(port);
    case Transport::Undef:
        break;
    }
    return "Invalid " + std::to_string(transport);
}

bool SocketEndpoint::operator==(const SocketEndpoint& other) const {
    return transport == other.transport && address == other.address &&
           (transport != Transport::Tcp || port == other.port);
}

bool SocketEndpoint::operator!=(const SocketEndpoint& other) const {
    return !(*this == other);
}

std::string SocketEndpoint::messageHeader() const {
    return "SocketEndpoint " + toString(Protocol::Undef);
}

} // namespace rk::socket
