#pragma once

#include <rk/Export.h>

#include <stdexcept>
#include <string>

namespace rk::socket {

/// The receive timeout expired before a message arrived.
///
/// Thrown by `Socket::receive` and `Socket::receiveProtoBuf`. The socket is as before the call: receive again to wait
/// longer.
class RK_SOCKET_EXPORT TimeoutException : public std::runtime_error {
public:
    /// `message` is what `what()` returns.
    explicit TimeoutException(const std::string& message);
    /// Copies the message.
    TimeoutException(const TimeoutException&) = default;
    /// Assigns the message.
    TimeoutException& operator=(const TimeoutException&) = default;
    ~TimeoutException() override;
};

} // namespace rk::socket
