#pragma once

#include <rk/Export.h>

#include <stdexcept>
#include <string>

namespace rk::socket {

/// The process exits, so the socket can only be closed.
///
/// Operations that send, receive or poll throw it. Close or destroy the socket: process exit waits for every open
/// socket.
class RK_SOCKET_EXPORT ZmqContextTerminationException : public std::runtime_error {
public:
    /// `message` is what `what()` returns.
    explicit ZmqContextTerminationException(const std::string& message);
    /// Copies the message.
    ZmqContextTerminationException(const ZmqContextTerminationException&) = default;
    /// Assigns the message.
    ZmqContextTerminationException& operator=(const ZmqContextTerminationException&) = default;
    ~ZmqContextTerminationException() override;
};

} // namespace rk::socket
