#include "system/ShellCommand.h"

#include "system/StopSignals.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::tools {

namespace {

class Descriptor {
public:
    Descriptor() = default;
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    void close() {
        if (number >= 0) {
            ::close(number);
            number = -1;
        }
    }

    int number = -1;
};

[[noreturn]] void refuse(const std::string& action) {
    throw std::runtime_error("cannot " + action + ": " + std::strerror(errno));
}

/// A file in memory, from whose start `input` can be read.
void fill(Descriptor& file, std::string_view input) {
    file.number = ::memfd_create("request", MFD_CLOEXEC);
    for (std::size_t done = 0; file.number >= 0 && done < input.size();) {
        const ssize_t written = ::pwrite(file.number, &input[done], input.size() - done, static_cast<off_t>(done));
        if (written < 0) {
            refuse("keep the request");
        }
        done += static_cast<std::size_t>(written);
    }
    if (file.number < 0) {
        refuse("keep the request");
    }
}

/// In a process group of its own, so that it can be ended with all that it has started; with the signals as usual.
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

/// False at the end.
bool drain(const Descriptor& pipe, std::string& output) {
    std::array<char, 65536> piece{};
    const ssize_t size = ::read(pipe.number, piece.data(), piece.size());
    if (size > 0) {
        output.append(piece.data(), static_cast<std::size_t>(size));
    }
    return size > 0 || (size < 0 && errno == EINTR);
}

int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

ShellCommand::ShellCommand(const std::string& commandText, const StopSignals& stopSignals)
    : command(commandText), stop(stopSignals) {}

ShellCommand::Result ShellCommand::run(std::string_view input) const {
    Descriptor request;
    Descriptor readEnd;
    Descriptor writeEnd;
    fill(request, input);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        refuse("make a pipe");
    }
    readEnd.number = ends[0];
    writeEnd.number = ends[1];
    const pid_t child = spawn(command, request.number, writeEnd.number);
    writeEnd.close();
    Result result;
    bool open = true;
    while (open) {
        std::array<pollfd, 2> items = {{{readEnd.number, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}}};
        ::poll(items.data(), items.size(), -1);
        if (stop.requested()) {
            ::kill(-child, SIGTERM);
            break;
        }
        if (items[0].revents != 0) {
            open = drain(readEnd, result.output);
        }
    }
    readEnd.close();
    result.status = waitFor(child);
    return result;
}

} // namespace rk::tools
