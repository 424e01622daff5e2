#pragma once

#include <rk/socket/Socket.h>

namespace rk::tools {

struct Settings;

/// The name of the socket that the settings ask for: its endpoints.
std::string socketName(const Settings& settings);

/// Opens `socket` as the settings ask. Throws std::runtime_error in the library's words.
void openSocket(rk::socket::Socket& socket, const Settings& settings);

} // namespace rk::tools
