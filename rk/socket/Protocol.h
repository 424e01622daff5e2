#pragma once

#include <rk/Export.h>

#include <string>

/// The messaging pattern of a socket, and its conversions. None of them throws or blocks; any thread may call them.
namespace rk::socket::Protocol {

/// Publish and reply sockets bind, subscribe and request sockets connect.
enum Protocol : int {
    Undef = 0, ///< no socket, or not known
    Pub = 1,   ///< publisher; binds
    Sub = 2,   ///< subscriber; connects
    Rep = 3,   ///< replier; binds
    Req = 4    ///< requester; connects
};

/// "pub", "sub", "rep" or "req"; "undef" for every other value.
RK_SOCKET_EXPORT std::string ToString(Protocol protocol);

/// The pattern whose text is exactly `text`, else `Undef`.
RK_SOCKET_EXPORT Protocol FromString(const std::string& text);

/// The 0MQ socket type of the pattern; -1, which 0MQ refuses, for every value that is no pattern. 0MQ numbers request
/// and reply the other way round.
RK_SOCKET_EXPORT int ToNativeProtocol(Protocol protocol);

} // namespace rk::socket::Protocol
