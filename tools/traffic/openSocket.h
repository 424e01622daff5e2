#pragma once

#include <rk/socket/Socket.h>

#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

/// What a socket is made like.
struct SocketSettings {
    std::vector<std::string> endpoints;
    std::optional<unsigned int> rate; ///< in Mbit/s
    std::optional<int> fifo;
    rk::socket::ClosePolicy::ClosePolicy closePolicy = rk::socket::ClosePolicy::DropPending;
};

/// The name of the socket that the settings ask for: its endpoints.
std::string socketName(const SocketSettings& settings);

/// Opens `socket` as the settings ask. Throws std::runtime_error in the library's words.
void openSocket(rk::socket::Socket& socket, rk::socket::Protocol::Protocol protocol, const SocketSettings& settings);

} // namespace rk::tools
