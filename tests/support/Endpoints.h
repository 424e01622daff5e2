#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <string>

namespace rk::tests {

/// A TCP port that nobody holds, outside the range from which the system gives ports to clients; no other process of
/// the tests gets it while this one runs.
unsigned short freePort();

/// A folder of this process for socket files, removed at its exit.
const std::string& temporaryFolder();

/// An endpoint of the given transport that nobody has used yet.
socket::SocketEndpoint freshEndpoint(socket::Transport::Transport transport);

} // namespace rk::tests
