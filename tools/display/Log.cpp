#include "display/Log.h"

#include <rk/utils/Log.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace rk::tools {

namespace {

std::atomic<bool> shown{false};

void writeLine(const char* level, const std::string& text) {
    const int error = errno;
    std::fprintf(stderr, "rk-socket: %s%s\n", level, text.c_str());
    errno = error;
}

} // namespace

void showLibraryLog() {
    shown = true;
}

} // namespace rk::tools

// These replace the functions of the library.
namespace rk::utils {

void logDebug(const std::string& text) {
    if (rk::tools::shown) {
        rk::tools::writeLine("debug: ", text);
    }
}

void logWarning(const std::string& text) {
    if (rk::tools::shown) {
        rk::tools::writeLine("warning: ", text);
    }
}

void logError(const std::string& text) {
    rk::tools::writeLine("", text);
}

} // namespace rk::utils
