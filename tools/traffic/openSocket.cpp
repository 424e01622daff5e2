#include "traffic/openSocket.h"

#include "traffic/Endpoint.h"

namespace rk::tools {

std::string socketName(const SocketSettings& settings) {
    std::string name;
    for (const std::string& endpoint : settings.endpoints) {
        name += (name.empty() ? "" : " ") + endpoint;
    }
    return name;
}

void openSocket(rk::socket::Socket& socket, rk::socket::Protocol::Protocol protocol, const SocketSettings& settings) {
    socket.create(protocol);
    if (settings.fifo) {
        // Only before the first connection: the size does not hold for those that are there.
        socket.setInternalFifoSize(*settings.fifo);
    }
    if (settings.rate) {
        socket.setTargetBitRate(*settings.rate);
    }
    for (const std::string& endpoint : settings.endpoints) {
        socket.connect(endpointFromText(endpoint), 0);
    }
}

} // namespace rk::tools
