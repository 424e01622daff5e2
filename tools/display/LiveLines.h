#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rk::tools {

/// What a terminal has to be sent so that lines are replaced by others in the same place.
class LiveLines {
public:
    /// The bytes that draw `lines`, each cut to `width` columns, over those drawn before. Once the terminal has become
    /// narrower, nobody knows where these are, and the screen is cleared.
    std::string draw(const std::vector<std::string>& lines, std::size_t width);

    /// The bytes that remove the lines.
    std::string clear();

private:
    std::size_t drawn = 0;
    std::size_t lastWidth = 0;
};

} // namespace rk::tools
