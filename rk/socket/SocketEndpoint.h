#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/Protocol.h>
#include <rk/socket/Transport.h>
#include <rk/utils/IMessageFormatter.h>

#include <string>

namespace rk::socket {

/// Where a socket binds or connects: a value made of a transport, an address and, for TCP, a port.
///
/// It parses the texts that applications pass in, "tcp://" host ":" port, "ipc://" path or "inproc://" name, and prints
/// the text that 0MQ wants, which for TCP depends on whether the socket binds or connects. Nothing blocks. As with any
/// value, one object may be read by several threads at once.
class RK_SOCKET_EXPORT SocketEndpoint : public rk::utils::IMessageFormatter {
public:
    /// The endpoint that leads nowhere: `Undef`, no address, port 0. It prints as "Invalid 0".
    SocketEndpoint() = default;

    /// Takes the three values as they are, without any check.
    SocketEndpoint(Transport::Transport transport, const std::string& address, unsigned short port);

    /// Parses `text`. Prefixes are compared exactly; addresses are taken as written, without any check.
    ///
    /// The address of a TCP endpoint ends at the last colon, and may be empty or hold colons. What follows is read as
    /// `strtol` reads a decimal number, and cut to its low 16 bits: "tcp://h:" has port 0, "tcp://h:70000" port 4464.
    ///
    /// \throws std::runtime_error "Failed deserializing " + text + ": cannot extract transport" when the text begins
    ///         with none of the three prefixes, or nothing follows the prefix
    /// \throws std::runtime_error "Failed deserializing " + text + ": cannot extract port" when what follows "tcp://"
    ///         has no colon
    static SocketEndpoint FromString(const std::string& text);

    /// The 0MQ text for a socket of the given pattern. For TCP, `Pub` and `Rep` get "tcp://*:" + port: they listen on
    /// all interfaces, whatever the address; every other pattern gets "tcp://" + address + ":" + port. An unknown
    /// transport gives "Invalid " + its number.
    std::string toString(Protocol::Protocol protocol) const;

    /// Same transport and address and, for TCP alone, same port.
    bool operator==(const SocketEndpoint& other) const;
    /// The opposite.
    bool operator!=(const SocketEndpoint& other) const;

    /// "SocketEndpoint " + `toString(Protocol::Undef)`.
    std::string messageHeader() const override;

    Transport::Transport transport = Transport::Undef; ///< decides what the other two mean
    std::string address;     ///< host as written for TCP, path for IPC, name for in-process endpoints
    unsigned short port = 0; ///< TCP port; 0 for the other transports
};

} // namespace rk::socket
