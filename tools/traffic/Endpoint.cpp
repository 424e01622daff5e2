#include "traffic/Endpoint.h"

#include <stdexcept>

namespace rk::tools {

namespace {

bool isEndpoint(const std::string& text) {
    try {
        const auto endpoint = rk::socket::SocketEndpoint::FromString(text);
        return !endpoint.address.empty();
    } catch (const std::runtime_error&) {
        return false;
    }
}

} // namespace

rk::socket::SocketEndpoint endpointFromText(const std::string& text) {
    if (!isEndpoint(text)) {
        throw std::runtime_error("'" + text + "' is no endpoint: tcp://HOST:PORT or ipc://PATH");
    }
    auto endpoint = rk::socket::SocketEndpoint::FromString(text);
    if (endpoint.transport == rk::socket::Transport::Inproc) {
        throw std::runtime_error(text + ": inproc endpoints reach nobody outside this process");
    }
    if (endpoint.transport == rk::socket::Transport::Tcp) {
        const std::string port = text.substr(text.rfind(':') + 1);
        if (endpoint.port == 0 || port != std::to_string(endpoint.port)) {
            throw std::runtime_error(text + ": the port has to be a number from 1 to 65535");
        }
    }
    return endpoint;
}

} // namespace rk::tools
