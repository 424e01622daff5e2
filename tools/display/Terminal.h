#pragma once

#include <cstddef>

namespace rk::tools {

bool isTerminal(int descriptor);

/// Returns whether it is a terminal with colours, and NO_COLOR is not set.
bool hasColours(int descriptor);

/// Returns whether it is a terminal on which lines can be redrawn in place.
bool canRedraw(int descriptor);

/// Returns the columns of the terminal, or 80 if they are unknown.
std::size_t widthOf(int descriptor);

} // namespace rk::tools
