#include "Server.h"

#include "Measuring.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::benchmarks {

namespace {

constexpr int inheritedEnd = 3;

/// The client has core 0. A round trip is done step after step, so both sides share a core, and no time goes into
/// waking another. A subscriber works while the publisher does.
unsigned int coreOfServer(const Cell& cell) {
    return cell.requests() ? 0 : 1;
}

} // namespace

Server::Server(const Peer& peer, const End& end) {
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    if (end.cell.transport == "inproc") {
        thread = std::thread([&peer, end, wire = ends[1]] {
            pinToCore(coreOfServer(end.cell));
            peer.serve(end, Control(wire));
        });
    } else {
        startProcess(peer, end);
    }
}

Server::~Server() {
    if (thread.joinable()) {
        thread.join();
    } else {
        ::waitpid(process, nullptr, 0);
    }
    ::close(ends[0]);
    ::close(ends[1]);
}

void Server::startProcess(const Peer& peer, const End& end) {
    std::string arguments[] = {"benchmark", "serve", peer.name, end.cell.text(), end.url};
    char* pointers[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(),
                        arguments[3].data(), arguments[4].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // A descriptor that is duplicated onto itself would keep its flag to close on exec.
    const int other = ::fcntl(ends[1], F_DUPFD_CLOEXEC, inheritedEnd + 1);
    posix_spawn_file_actions_adddup2(&actions, other, inheritedEnd);
    // Standard output is for figures alone.
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    const int error = posix_spawn(&process, "/proc/self/exe", &actions, nullptr, pointers, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(other);
    require(error == 0, "starting a server");
}

void Server::serveAsProcess(const Peer& peer, const End& end) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pinToCore(coreOfServer(end.cell));
    peer.serve(end, Control(inheritedEnd));
}

} // namespace rk::benchmarks
