#pragma once

#include "Peer.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace rk::benchmarks {

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
