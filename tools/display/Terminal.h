#pragma once

#include <cstddef>

namespace rk::tools {

bool isTerminal(int descriptor);

/// Colours are for terminals, unless the environment says NO_COLOR or that the terminal is dumb.
bool hasColours(int descriptor);

/// Whether it is a terminal on which lines can be drawn over others.
bool canRedraw(int descriptor);

/// Columns of the terminal, 80 if it does not tell.
std::size_t widthOf(int descriptor);

} // namespace rk::tools
