#pragma once

#include <rk/Export.h>

#include <stdexcept>
#include <string>

namespace rk::socket {

/// The receive timeout expired before a message arrived.
///
/// `Socket::receive`, `Socket::receiveProtoBuf` and `utils::Requester::request` throw it. A `Socket` is unchanged: call
/// `receive` again to wait longer.
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
