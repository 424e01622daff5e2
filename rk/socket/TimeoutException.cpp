#include <rk/socket/TimeoutException.h>

namespace rk::socket {

TimeoutException::TimeoutException(const std::string& message) : std::runtime_error(message) {}

TimeoutException::~TimeoutException() = default;

} // namespace rk::socket
