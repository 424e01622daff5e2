#pragma once

#include <rk/Export.h>

#include <string>

/// The transport of an endpoint, and its conversions. None of them throws or blocks; any thread may call them.
namespace rk::socket::Transport {

/// How far an endpoint reaches.
enum Transport : int {
    Undef = 0,  ///< not known
    Inproc = 1, ///< between the threads of a process
    Ipc = 2,    ///< between the processes of a machine
    Tcp = 3     ///< between machines
};

/// "inproc", "ipc" or "tcp"; "undef" for every other value.
RK_SOCKET_EXPORT std::string ToString(Transport transport);

/// The transport whose text is exactly `text`, else `Undef`.
RK_SOCKET_EXPORT Transport FromString(const std::string& text);

} // namespace rk::socket::Transport
