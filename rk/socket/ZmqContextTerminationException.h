#pragma once

#include <rk/Export.h>

#include <stdexcept>
#include <string>

namespace rk::socket {

/// The 0MQ context was terminated, because the process exits: the socket at hand can only be closed.
///
/// Thrown by the operations of `Socket` that send, receive and poll. Close or destroy the socket soon: the exit waits
/// for every open socket.
class RK_SOCKET_EXPORT ZmqContextTerminationException : public std::runtime_error {
public:
    /// `message` is what `what()` returns.
    explicit ZmqContextTerminationException(const std::string& message);
    /// Copied with its text, as exceptions are.
    ZmqContextTerminationException(const ZmqContextTerminationException&) = default;
    /// Assigned with its text, as exceptions are.
    ZmqContextTerminationException& operator=(const ZmqContextTerminationException&) = default;
    ~ZmqContextTerminationException() override;
};

} // namespace rk::socket
