#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace rk::tests {

/// How a child process ended, and what it wrote to standard error.
struct ChildResult {
    bool ended = false; ///< before the time ran out
    int status = -1;    ///< exit status, or the negative number of the signal
    std::vector<std::string> errorLines;
};

/// Runs a program and waits for it. Kills it if it does not end in time.
ChildResult runChild(const std::vector<std::string>& command, std::chrono::seconds patience = std::chrono::seconds(30));

} // namespace rk::tests
