#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <string>

namespace rk::tests {

/// Returns a free TCP port, outside the system's range of ephemeral ports. No other test process gets it while this one
/// runs.
unsigned short freePort();

/// Returns this process's folder for socket files, which is removed at exit.
const std::string& temporaryFolder();

/// Returns an unused endpoint of the given transport.
socket::SocketEndpoint freshEndpoint(socket::Transport::Transport transport);

/// An endpoint that no socket can serve, since its folder does not exist.
inline const socket::SocketEndpoint unserved(socket::Transport::Ipc, "/nonexistent/nobody", 0);

} // namespace rk::tests
