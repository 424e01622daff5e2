#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace rk::tools {

class StopSignals;

/// A command that exceeds a limit is killed.
struct ShellLimits {
    std::chrono::nanoseconds time = std::chrono::seconds(10);
    std::size_t output = 64UL * 1024 * 1024; ///< in bytes
};

struct ShellResult {
    std::string output;
    int status = 0;                      ///< as in a shell: 128 + number if a signal ended the command
    std::optional<std::string> exceeded; ///< the limit for which the command was killed
};

/// Runs a command with `input` on its standard input. Returns its standard output up to its end. Processes that it leaves
/// in the background continue. A signal to this process kills it. Throws std::runtime_error if it cannot be run.
ShellResult runInShell(const std::string& command, std::string_view input, const ShellLimits& limits,
                       const StopSignals& stop);

} // namespace rk::tools
