#pragma once

#include <string>
#include <string_view>

namespace rk::tools {

class StopSignals;

/// A command for the shell, which is run again and again.
class ShellCommand {
public:
    struct Result {
        std::string output;
        int status = 0; ///< as a shell tells it: 128 + number when a signal ended the command
    };

    ShellCommand(const std::string& command, const StopSignals& stop);

    /// Runs the command with `input` on its standard input, and returns what it writes to standard output. A request to
    /// stop ends it. Throws std::runtime_error when it cannot be run.
    Result run(std::string_view input) const;

private:
    std::string command;
    const StopSignals& stop;
};

} // namespace rk::tools
