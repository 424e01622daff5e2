#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rk::tools {

/// What a terminal has to be sent so that lines are replaced by others in the same place.
class LiveLines {
public:
    /// The bytes that draw `lines`, each cut to `width` columns, over those drawn before.
    std::string draw(const std::vector<std::string>& lines, std::size_t width);

private:
    std::size_t drawn = 0;
};

} // namespace rk::tools
