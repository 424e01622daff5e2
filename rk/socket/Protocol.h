#pragma once

#include <rk/Export.h>

#include <string>

/// The messaging pattern of a socket, and its conversions.
///
/// No function throws or blocks. Any thread may call them.
namespace rk::socket::Protocol {

/// Pass one of these to `Socket::create`.
enum Protocol : int {
    Undef = 0, ///< no pattern
    Pub = 1,   ///< publishes, and binds
    Sub = 2,   ///< subscribes, and connects
    Rep = 3,   ///< replies, and binds
    Req = 4    ///< requests, and connects
};

/// Returns "pub", "sub", "rep" or "req", or "undef" for every other value.
RK_SOCKET_EXPORT std::string ToString(Protocol protocol);

/// Returns the pattern whose name is exactly `text`, or `Undef`.
RK_SOCKET_EXPORT Protocol FromString(const std::string& text);

/// Returns ZeroMQ's socket type for the pattern, or -1, which ZeroMQ rejects, for every other value. ZeroMQ numbers
/// request and reply in the opposite order.
RK_SOCKET_EXPORT int ToNativeProtocol(Protocol protocol);

} // namespace rk::socket::Protocol
