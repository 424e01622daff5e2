#pragma once

#include <rk/Export.h>

#include <cstdint>
#include <string>

/// How the sockets of this process use the network.
///
/// Call these functions in `main`, before the first socket is made. A socket takes the settings over when it is created
/// and connected. Rebuilt sockets and restarted listeners therefore follow later changes, and other open sockets do not.
/// A setting that was never made leaves ZeroMQ's default alone.
///
/// None of the functions blocks, and any thread may call them. A call that throws changes nothing. All of them throw
/// `std::system_error` if a lock fails.
namespace rk::socket::Network {

/// Sets where `Pub` and `Rep` sockets listen on TCP. The default is "*", all interfaces.
///
/// `connect` then finds the addresses of the host, which can take as long as the system's name service. It listens on
/// all of them and throws if the machine has no such address, interface or name. An interface stands for its addresses,
/// except for link-local IPv6 addresses.
/// \param host an address, an interface, or a name of this machine such as "localhost". The empty text stands for the
///        host that is written in each endpoint.
/// \throws std::invalid_argument if `host` contains a port or "://"
RK_SOCKET_EXPORT void listenOn(const std::string& host);

/// Sets the time within which this process notices on TCP that the machine of a peer has vanished. Connecting sockets
/// then connect again by themselves. The system probes idle connections, so peers need no setting of their own.
///
/// A `Pub` or `Rep` that has sent data to such a peer notices only when the system gives up, after about 15 minutes.
/// \param seconds at most 32767; 1 counts as 2. 0 switches the probes off, which is the default.
/// \throws std::invalid_argument if `seconds` is too large
RK_SOCKET_EXPORT void setPeerTimeout(unsigned int seconds);

/// Sets how long a subscribe listener may receive nothing before it connects its TCP and IPC endpoints again. Restarted
/// listeners follow.
///
/// The listener logs one warning until it receives again. It repeats the attempt with pauses that double up to 30
/// seconds. Messages that are published while it connects are lost, so choose a time that is longer than the pauses of
/// the publisher and than its largest message takes.
/// \param seconds 0 for no limit, which is the default
RK_SOCKET_EXPORT void setSilenceLimit(unsigned int seconds);

/// Limits the size of a message that a `Pub` or `Rep` socket accepts on TCP and IPC. A peer that sends a larger one is
/// disconnected before memory is allocated for it.
/// \param bytes at least 1, or -1 for no limit, which is the default. ZeroMQ needs 64 to greet a peer, so less counts
///        as 64.
/// \throws std::invalid_argument for other values
RK_SOCKET_EXPORT void setMaxMessageSize(std::int64_t bytes);

/// Sets the length of ZeroMQ's queues, in both directions, for each peer of each socket that is created from now on.
/// `Socket::setInternalFifoSize` overrides it until the socket is rebuilt.
/// \param messages 0 for no limit; the default is 1,000
/// \throws std::invalid_argument for a negative number
RK_SOCKET_EXPORT void setQueueSize(int messages);

/// Limits the number of native sockets that the process can have open at a time. The default is ZeroMQ's 1,023.
/// \param sockets 1 to 65535
/// \throws std::invalid_argument for other values
/// \throws std::logic_error if the first socket of the process was already created
RK_SOCKET_EXPORT void setMaxSockets(int sockets);

/// Switches IPv6 on or off for TCP. Off, the default, an IPv6 address leads nowhere.
///
/// On, "*" listens on both families, and so does an interface. A host name that has addresses of both families is
/// connected over IPv6.
RK_SOCKET_EXPORT void setIpv6(bool enabled);

} // namespace rk::socket::Network
