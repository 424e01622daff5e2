#include "display/Terminal.h"

#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace rk::tools {

bool isTerminal(int descriptor) {
    return ::isatty(descriptor) == 1;
}

bool canRedraw(int descriptor) {
    const char* const terminal = std::getenv("TERM");
    return isTerminal(descriptor) && terminal != nullptr && std::string_view(terminal) != "dumb";
}

bool hasColours(int descriptor) {
    const char* const refusal = std::getenv("NO_COLOR");
    return canRedraw(descriptor) && (refusal == nullptr || *refusal == '\0');
}

std::size_t widthOf(int descriptor) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return 80;
    }
    return size.ws_col;
}

} // namespace rk::tools
