#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <cstddef>

namespace rk::tools {

struct Keys;
class Line;

constexpr std::size_t greetingSize = 64; // of ZMTP, in bytes

/// The outcome of an encrypted handshake.
enum class Handshake {
    Done,
    WrongKey,  ///< the server has another key.
    Untrusted, ///< the server does not trust the client.
    Refused,   ///< untrusted, or the types of the sockets do not fit.
    Unanswered
};

/// Performs an encrypted handshake on `server`, which is connected to `endpoint`, with a ZeroMQ socket of this type. Throws
/// std::runtime_error if it cannot.
Handshake shakeHands(Line& server, const rk::socket::SocketEndpoint& endpoint, const Keys& keys, int socketType);

} // namespace rk::tools
