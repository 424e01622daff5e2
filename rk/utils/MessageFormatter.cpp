#include <rk/utils/MessageFormatter.h>

namespace rk::utils {

MessageFormatter::MessageFormatter(const std::string& formatterName) : name(formatterName) {}

std::string MessageFormatter::messageHeader() const {
    return "[" + name + "]";
}

} // namespace rk::utils
