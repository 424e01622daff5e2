#pragma once

#include <rk/socket/SocketEndpoint.h>

namespace rk::tools {

class Keys;
class Line;

/// How the start of an encrypted connection ends.
enum class Handshake {
    Done,
    WrongKey,  ///< of the server
    Untrusted, ///< the client's key
    Refused,   ///< for the key, or because the types of the sockets do not fit
    Unanswered
};

/// Starts an encrypted connection on `server`, which is connected to `endpoint`, for a ZeroMQ socket of this type.
/// Throws std::runtime_error.
Handshake shakeHands(Line& server, const rk::socket::SocketEndpoint& endpoint, const Keys& keys, int socketType);

} // namespace rk::tools
