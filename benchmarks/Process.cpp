#include "Process.h"

#include "Measuring.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace rk::benchmarks {

namespace {

constexpr int inheritedEnd = 3;

} // namespace

pid_t spawn(const std::string& path, std::vector<std::string> arguments, posix_spawn_file_actions_t& actions) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    pid_t process = 0;
    const int error = posix_spawn(&process, path.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    require(error == 0, "starting a process");
    return process;
}

Process::Process(std::vector<std::string> arguments) {
    int ends[2];
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    end = ends[0];
    arguments.insert(arguments.begin(), "benchmark");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // A descriptor that is duplicated onto itself would keep its flag to close on exec.
    const int other = ::fcntl(ends[1], F_DUPFD_CLOEXEC, inheritedEnd + 1);
    posix_spawn_file_actions_adddup2(&actions, other, inheritedEnd);
    // Standard output is for figures alone.
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    process = spawn("/proc/self/exe", std::move(arguments), actions);
    ::close(other);
    ::close(ends[1]);
}

Process::~Process() {
    ::waitpid(process, nullptr, 0);
    ::close(end);
}

Control Process::startedAs() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::fcntl(inheritedEnd, F_SETFD, FD_CLOEXEC);
    return Control(inheritedEnd);
}

} // namespace rk::benchmarks
