#pragma once

#include <rk/Export.h>

#include <cstdint>
#include <string>

/// How the sockets of this process use the network.
///
/// Call these functions in `main`, before the first socket is created. Sockets read the settings in `create` and
/// `connect`. Later changes therefore apply to endpoints that are connected later. Existing endpoints follow them when
/// the socket is rebuilt, or the listener restarts or reconnects. A setting that you do not make leaves ZeroMQ's
/// default unchanged.
///
/// No function blocks. Any thread may call them. A call that throws changes nothing. All of them throw
/// `std::system_error` if a lock fails.
namespace rk::socket::Network {

/// Sets where `Pub` and `Rep` sockets listen on TCP. The default is "*", all interfaces.
///
/// `Socket::connect` then resolves the host, which can block as long as the system's name service does. It listens on
/// all addresses that it finds, and throws if the machine has no such address, interface or name. For an interface
/// these are all its addresses except link-local IPv6 addresses.
/// \param host an address, an interface, or a name of this machine such as "localhost". The empty string means the host
///        in each endpoint.
/// \throws std::invalid_argument if `host` contains a port or "://"
RK_SOCKET_EXPORT void listenOn(const std::string& host);

/// Sets how soon this process notices that the machine of a TCP peer has vanished. Connecting sockets then reconnect by
/// themselves. The system probes idle connections, so peers need no setting.
///
/// A `Pub` or `Rep` that has sent data to such a peer notices only when the system closes the connection, after about
/// 15 minutes.
/// \param seconds at most 32767. 1 counts as 2. 0, the default, switches the probes off.
/// \throws std::invalid_argument if `seconds` is too large
RK_SOCKET_EXPORT void setPeerTimeout(unsigned int seconds);

/// Sets how long a subscribe listener may receive nothing before it reconnects its TCP and IPC endpoints.
///
/// The listener logs one warning, and retries until it receives a message, with pauses that double up to 30 seconds, or
/// up to `seconds` if that is longer. Messages that are published while it reconnects are lost. Choose a time longer
/// than the pauses of the publisher and than the transfer of its largest message. Restarted listeners follow a later
/// change.
/// \param seconds 0, the default, means no limit
RK_SOCKET_EXPORT void setSilenceLimit(unsigned int seconds);

/// Limits the size of a message that a `Pub` or `Rep` socket accepts on TCP and IPC. A peer that sends a larger one is
/// disconnected before memory is allocated for it.
/// \param bytes at least 1, or -1 for no limit. Less than 64 counts as 64, which ZeroMQ's handshake needs. The default
///        is 16 MiB for encrypted endpoints, and no limit for others.
/// \throws std::invalid_argument for other values
RK_SOCKET_EXPORT void setMaxMessageSize(std::int64_t bytes);

/// Sets the length of ZeroMQ's queues, in both directions, for each peer of each socket that is created later.
/// `Socket::setInternalFifoSize` overrides it for one direction until the socket is rebuilt.
/// \param messages 0 means no limit. The default is 1,000.
/// \throws std::invalid_argument for a negative number
RK_SOCKET_EXPORT void setQueueSize(int messages);

/// Limits the number of ZeroMQ sockets that the process can have at a time. The default is 1,023.
/// \param sockets 1 to 65535
/// \throws std::invalid_argument for other values
/// \throws std::logic_error if the process has already created a socket or a `SocketContext`
RK_SOCKET_EXPORT void setMaxSockets(int sockets);

/// Switches IPv6 on or off for TCP. While it is off, the default, a connection to an IPv6 address fails silently.
///
/// While it is on, "*" and an interface listen on both families. A host name with addresses of both families is
/// connected over IPv6.
RK_SOCKET_EXPORT void setIpv6(bool enabled);

} // namespace rk::socket::Network
