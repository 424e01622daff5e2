#include "Child.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

pid_t spawnWithErrorsTo(int descriptor, const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, descriptor, STDERR_FILENO);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + command[0]);
    }
    return child;
}

/// Reads from `descriptor` until its other end is closed. Returns false if the time runs out first.
bool readAll(int descriptor, std::string& text, std::chrono::seconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd item{descriptor, POLLIN, 0};
        if (left <= 0 || ::poll(&item, 1, static_cast<int>(left)) == 0) {
            return false;
        }
        char block[4096];
        const ssize_t size = ::read(descriptor, block, sizeof block);
        if (size == 0) {
            return true;
        }
        if (size > 0) {
            text.append(block, static_cast<std::size_t>(size));
        }
    }
}

} // namespace

ChildResult runChild(const std::vector<std::string>& command, std::chrono::seconds patience) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    const pid_t child = spawnWithErrorsTo(ends[1], command);
    ::close(ends[1]);
    ChildResult result;
    std::string text;
    result.ended = readAll(ends[0], text, patience);
    ::close(ends[0]);
    if (!result.ended) {
        ::kill(child, SIGKILL);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        result.errorLines.push_back(line);
    }
    return result;
}

} // namespace rk::tests
