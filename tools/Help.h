#pragma once

#include "Description.h"

#include <string>

namespace rk::tools {

/// What --help prints, in the width of a terminal: for the program, and for a command, with its examples last.
std::string help(const Description& program);
std::string help(const CommandDescription& command);

} // namespace rk::tools
