#include "system/ShellCommand.h"

#include "display/Numbers.h"
#include "system/StopSignals.h"

#include <rk/socket/detail/FileDescriptor.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::tools {

namespace {

using rk::socket::detail::FileDescriptor;

[[noreturn]] void refuse(const std::string& action) {
    throw std::runtime_error("cannot " + action + ": " + std::strerror(errno));
}

/// Writes the input so that it can be read from the start of the file, which is negative if it could not be made.
void fill(int file, std::string_view input) {
    ssize_t written = file;
    for (std::size_t done = 0; written >= 0 && done < input.size(); done += static_cast<std::size_t>(written)) {
        written = ::pwrite(file, &input[done], input.size() - done, static_cast<off_t>(done));
    }
    if (written < 0) {
        refuse("keep the request");
    }
}

/// Starts the command with default signals, in a new process group, so that it can be killed with its children.
pid_t spawn(const std::string& command, int input, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    std::string shell = "sh";
    std::string option = "-c";
    std::string text = command;
    std::array<char*, 4> arguments = {shell.data(), option.data(), text.data(), nullptr};
    pid_t child = 0;
    const int error = ::posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error(std::string("cannot run /bin/sh: ") + std::strerror(error));
    }
    return child;
}

int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// A running command.
class Run {
public:
    using Clock = std::chrono::steady_clock;

    Run(const std::string& command, std::string_view input, const ShellLimits& limitsToKeep)
        : limits(limitsToKeep), deadline(Clock::now() + limits.time), request(::memfd_create("request", MFD_CLOEXEC)) {
        fill(request.get(), input);
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            refuse("make a pipe");
        }
        readEnd.emplace(ends[0]);
        const FileDescriptor writeEnd(ends[1]);
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
        child = spawn(command, request.get(), writeEnd.get());
        ended.emplace(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
        if (!ended->isOpen()) {
            const int error = errno;
            kill();
            waitFor(child);
            errno = error;
            refuse("watch the command");
        }
    }

    ShellResult finish(const StopSignals& stop) {
        ShellResult result;
        while (!hasEnded && !stop.requested() && !result.exceeded) {
            await(stop);
            drain(result.output);
            result.exceeded = exceededBy(result.output);
        }
        if (!hasEnded) {
            kill();
        }
        result.status = waitFor(child);
        return result;
    }

private:
    void await(const StopSignals& stop) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const int limit = static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, INT_MAX));
        std::array<pollfd, 3> items = {
            {{ended->get(), POLLIN, 0}, {readEnd ? readEnd->get() : -1, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), limit);
        hasEnded = items[0].revents != 0;
    }

    /// Reads the output that is there, up to the limit.
    void drain(std::string& output) {
        std::array<char, 65536> piece{};
        ssize_t size = 1;
        while (readEnd && size > 0 && output.size() <= limits.output) {
            size = ::read(readEnd->get(), piece.data(), piece.size());
            output.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        }
        if (size == 0) {
            readEnd.reset();
        }
    }

    std::optional<std::string> exceededBy(const std::string& output) const {
        if (output.size() > limits.output) {
            return "it wrote more than " + std::to_string(limits.output) + " bytes";
        }
        if (!hasEnded && Clock::now() >= deadline) {
            return "it took longer than " + described(limits.time);
        }
        return std::nullopt;
    }

    void kill() const { ::kill(-child, SIGKILL); }

    ShellLimits limits;
    Clock::time_point deadline;
    FileDescriptor request;
    std::optional<FileDescriptor> readEnd; ///< of its output, until the output ends
    std::optional<FileDescriptor> ended;   ///< becomes readable when the command has ended
    pid_t child = 0;
    bool hasEnded = false;
};

} // namespace

ShellResult runInShell(const std::string& command, std::string_view input, const ShellLimits& limits,
                       const StopSignals& stop) {
    return Run(command, input, limits).finish(stop);
}

} // namespace rk::tools
