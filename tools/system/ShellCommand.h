#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace rk::tools {

class StopSignals;

/// A command for the shell, which is run again and again.
class ShellCommand {
public:
    /// What a command may use before it is killed.
    struct Limits {
        std::chrono::nanoseconds time = std::chrono::seconds(10);
        std::size_t output = 64UL * 1024 * 1024; ///< in bytes
    };

    struct Result {
        std::string output;
        int status = 0;                      ///< as a shell tells it: 128 + number when a signal ended the command
        std::optional<std::string> exceeded; ///< the limit that the command was killed for, for people
    };

    ShellCommand(const std::string& command, const Limits& limits, const StopSignals& stop);

    /// Runs the command with `input` on its standard input, and returns what it writes to standard output before it
    /// ends. What it has started in the background may go on. A request to stop kills it. Throws std::runtime_error when
    /// it cannot be run.
    Result run(std::string_view input) const;

private:
    std::string command;
    Limits limits;
    const StopSignals& stop;
};

} // namespace rk::tools
