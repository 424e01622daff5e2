#pragma once

#include "Description.h"
#include "Settings.h"

#include <string>
#include <variant>

namespace rk::tools {

/// What to print instead of working.
struct Information {
    std::string text;
};

/// What is wrong with the command line.
struct Misuse {
    std::string text;
};

std::variant<Settings, Information, Misuse> parseCommandLine(int argc, const char* const* argv);

Description describeCommandLine();

} // namespace rk::tools
