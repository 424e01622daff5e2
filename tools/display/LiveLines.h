#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rk::tools {

/// Makes the bytes that redraw lines of a terminal in place.
class LiveLines {
public:
    /// Returns the bytes that draw `lines`, cut to `width` columns, over the last ones. They clear the screen if the
    /// terminal has become narrower, because it has wrapped the last ones.
    std::string draw(const std::vector<std::string>& lines, std::size_t width);

    /// Returns the bytes that remove the lines.
    std::string clear();

private:
    std::size_t drawn = 0;
    std::size_t lastWidth = 0;
};

} // namespace rk::tools
