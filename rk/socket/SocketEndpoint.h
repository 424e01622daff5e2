#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/Protocol.h>
#include <rk/socket/Transport.h>
#include <rk/utils/IMessageFormatter.h>

#include <string>

namespace rk::socket {

/// Where a socket binds or connects: a transport, an address and, for TCP, a port.
///
/// Parse one with `FromString`, from "tcp://" host ":" port, "ipc://" path or "inproc://" name, and pass it to
/// `Socket::connect`. It is a value: several threads may read one object at once. No operation blocks.
class RK_SOCKET_EXPORT SocketEndpoint : public rk::utils::IMessageFormatter {
public:
    /// Constructs an endpoint without transport, address and port. Its string form is "Invalid 0".
    SocketEndpoint() = default;

    /// Constructs an endpoint from the three values. Does not check them.
    SocketEndpoint(Transport::Transport transport, const std::string& address, unsigned short port);

    /// Parses an endpoint. Prefixes are case-sensitive. The address is not checked.
    ///
    /// The address of a TCP endpoint ends at the last colon. It may be empty or contain colons. The port is parsed as
    /// `strtol` does and cut to its low 16 bits: "tcp://h:" has port 0, "tcp://h:70000" has port 4464.
    ///
    /// \throws std::runtime_error if `text` begins with none of the three prefixes, nothing follows the prefix, or a
    ///         TCP endpoint has no colon after the host
    static SocketEndpoint FromString(const std::string& text);

    /// Returns the string form for a socket of the given pattern.
    ///
    /// For TCP this is "tcp://*:" + port for `Pub` and `Rep`, whatever the address, and "tcp://" + address + ":" + port
    /// for every other pattern. For an unknown transport it is "Invalid " + its number.
    std::string toString(Protocol::Protocol protocol) const;

    /// Returns whether transport, address and, for TCP only, port are equal.
    bool operator==(const SocketEndpoint& other) const;
    /// Returns the opposite of `==`.
    bool operator!=(const SocketEndpoint& other) const;

    /// Returns "SocketEndpoint " + `toString(Protocol::Undef)`.
    std::string messageHeader() const override;

    Transport::Transport transport = Transport::Undef; ///< decides the meaning of the other two
    std::string address;                               ///< host for TCP, path for IPC, name for inproc
    unsigned short port = 0;                           ///< TCP port, 0 for the other transports
};

} // namespace rk::socket
