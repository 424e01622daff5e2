#include "display/LiveLines.h"

namespace rk::tools {

std::string LiveLines::draw(const std::vector<std::string>& lines, std::size_t width) {
    std::string bytes;
    if (drawn > 0) {
        bytes += "\033[" + std::to_string(drawn) + "A";
    }
    for (const std::string& line : lines) {
        bytes += "\r\033[K" + line.substr(0, width) + "\n";
    }
    drawn = lines.size();
    return bytes;
}

} // namespace rk::tools
