#include "openSocket.h"

#include "Endpoint.h"
#include "Settings.h"

namespace rk::tools {

std::string socketName(const Settings& settings) {
    std::string name;
    for (const std::string& endpoint : settings.endpoints) {
        name += (name.empty() ? "" : " ") + endpoint;
    }
    return name;
}

void openSocket(rk::socket::Socket& socket, const Settings& settings) {
    socket.create(settings.protocol);
    if (settings.fifo) {
        // Only before the first connection: the size does not hold for those that are there.
        socket.setInternalFifoSize(*settings.fifo);
    }
    socket.setTargetBitRate(settings.rate);
    for (const std::string& endpoint : settings.endpoints) {
        socket.connect(endpointFromText(endpoint), 0);
    }
}

} // namespace rk::tools
