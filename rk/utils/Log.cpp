#include <rk/detail/LogBackend.h>
#include <rk/utils/Log.h>

namespace rk::utils {

void logDebug(const std::string& text) {
    rk::detail::writeLine(rk::detail::Level::Debug, text);
}

void logWarning(const std::string& text) {
    rk::detail::writeLine(rk::detail::Level::Warning, text);
}

void logError(const std::string& text) {
    rk::detail::writeLine(rk::detail::Level::Error, text);
}

} // namespace rk::utils
