#include "ShellCommand.h"

#include "StopSignals.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
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

struct Pipe {
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
        }
        readEnd.number = ends[0];
        writeEnd.number = ends[1];
    }

    Descriptor readEnd;
    Descriptor writeEnd;
};

/// In a process group of its own, so that it can be ended with all that it has started; with the signals as usual.
pid_t spawn(const std::string& command, const Pipe& input, const Pipe& output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.readEnd.number, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.writeEnd.number, STDOUT_FILENO);
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

/// Writes what the pipe has room for. Closes it at the end of the input, or when nobody reads it.
void feed(Descriptor& pipe, std::string_view& input) {
    const ssize_t written = ::write(pipe.number, input.data(), input.size());
    if (written >= 0) {
        input.remove_prefix(static_cast<std::size_t>(written));
    }
    if (input.empty() || (written < 0 && errno != EAGAIN && errno != EINTR)) {
        pipe.close();
    }
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
    Pipe toChild;
    Pipe fromChild;
    const pid_t child = spawn(command, toChild, fromChild);
    toChild.readEnd.close();
    fromChild.writeEnd.close();
    ::fcntl(toChild.writeEnd.number, F_SETFL, O_NONBLOCK);
    Result result;
    bool open = true;
    while (open) {
        std::array<pollfd, 3> items = {{{fromChild.readEnd.number, POLLIN, 0},
                                        {stop.descriptor(), POLLIN, 0},
                                        {toChild.writeEnd.number, POLLOUT, 0}}};
        ::poll(items.data(), items.size(), -1);
        if (stop.requested()) {
            ::kill(-child, SIGTERM);
            break;
        }
        if (items[2].revents != 0) {
            feed(toChild.writeEnd, input);
        }
        if (items[0].revents != 0) {
            open = drain(fromChild.readEnd, result.output);
        }
    }
    toChild.writeEnd.close();
    fromChild.readEnd.close();
    result.status = waitFor(child);
    return result;
}

} // namespace rk::tools
