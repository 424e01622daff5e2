#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace rk::tools {

/// The command line was not understood. The text says why, and where to find help.
class Misuse : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the arguments into what the options of `program` and its subcommands are bound to. Returns the text to print
/// when the user asks for help or the version instead of work. Throws Misuse.
std::optional<std::string> parseCommandLine(CLI::App& program, int argc, const char* const* argv);

} // namespace rk::tools
