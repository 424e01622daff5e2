#pragma once

#include <rk/Export.h>

#include <string>

/// The transport of an endpoint, and its conversions.
///
/// No function throws or blocks. Any thread may call them.
namespace rk::socket::Transport {

/// How far an endpoint reaches.
enum Transport : int {
    Undef = 0,  ///< no transport
    Inproc = 1, ///< between the threads of a process
    Ipc = 2,    ///< between the processes of a machine
    Tcp = 3     ///< between machines
};

/// Returns "inproc", "ipc" or "tcp", or "undef" for every other value.
RK_SOCKET_EXPORT std::string ToString(Transport transport);

/// Returns the transport whose name is exactly `text`, or `Undef`.
RK_SOCKET_EXPORT Transport FromString(const std::string& text);

} // namespace rk::socket::Transport
