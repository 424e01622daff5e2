#include <rk/socket/ZmqContextTerminationException.h>

namespace rk::socket {

ZmqContextTerminationException::ZmqContextTerminationException(const std::string& message)
    : std::runtime_error(message) {}

ZmqContextTerminationException::~ZmqContextTerminationException() = default;

} // namespace rk::socket
