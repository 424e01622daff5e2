#include <rk/utils/Log.h>
#include <rk/utils/detail/LogBackend.h>

namespace rk::utils {

void logDebug(const std::string& text) {
    detail::writeLine(detail::Level::Debug, text);
}

void logWarning(const std::string& text) {
    detail::writeLine(detail::Level::Warning, text);
}

void logError(const std::string& text) {
    detail::writeLine(detail::Level::Error, text);
}

} // namespace rk::utils
