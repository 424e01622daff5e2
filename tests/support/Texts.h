#pragma once

#include <rk/socket/Socket.h>

#include <string>

namespace rk::tests {

inline void sendText(socket::Socket& socket, const std::string& text) {
    std::string copy = text;
    socket.send(copy.data(), copy.size());
}

/// Receives a message of at most 256 bytes.
inline std::string receiveText(socket::Socket& socket) {
    char buffer[256];
    const int size = socket.receive(buffer, sizeof buffer);
    return {buffer, static_cast<std::size_t>(size)};
}

} // namespace rk::tests
