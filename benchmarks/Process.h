#pragma once

#include "Peer.h"

#include <spawn.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace rk::benchmarks {

/// Starts a program, and destroys the actions.
/// \param actions what happens to the program's descriptors
/// \throws std::runtime_error if there is no such program
pid_t spawn(const std::string& path, std::vector<std::string> arguments, posix_spawn_file_actions_t& actions);

/// A child process that runs this program and ends with it.
class Process {
public:
    explicit Process(std::vector<std::string> arguments);

    /// Waits for its end.
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Controls the process.
    Control control() const { return Control(end); }

    /// Prepares the program that was started like this, and returns what controls it.
    static Control startedAs();

private:
    int end = -1;
    pid_t process = 0;
};

} // namespace rk::benchmarks
