#include <rk/utils/IMessageFormatter.h>

namespace rk::utils {

std::string IMessageFormatter::formatMessage(const std::string& message) const {
    return messageHeader() + ": " + message;
}

} // namespace rk::utils
