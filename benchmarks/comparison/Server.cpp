#include "Server.h"

#include "support/Pinning.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::benchmarks {

namespace {

constexpr int inheritedEnd = 3;

/// The client has core 0. A round trip is done step after step, so both sides share a core, and no time goes into
/// waking another; a subscriber works while the publisher does.
unsigned int coreOfServer(const Cell& cell) {
    return cell.pattern == Pattern::RequestReply ? 0 : 1;
}

} // namespace

Server::Server(const Peer& peer, const Cell& cell, const std::string& address) {
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
    if (cell.transport == "inproc") {
        thread = std::thread([&peer, cell, address, end = ends[1]] {
            pinToCore(coreOfServer(cell));
            peer.serve(cell, address, Control(end));
        });
    } else {
        startProcess(peer, cell, address);
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

void Server::startProcess(const Peer& peer, const Cell& cell, const std::string& address) {
    std::string arguments[] = {"comparison", "--serve", peer.name(), cell.text(), address};
    char* pointers[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(),
                        arguments[3].data(), arguments[4].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // A descriptor that is already in its place would stay one that is closed at the start of a program.
    const int other = ::fcntl(ends[1], F_DUPFD_CLOEXEC, inheritedEnd + 1);
    posix_spawn_file_actions_adddup2(&actions, other, inheritedEnd);
    // Standard output is for figures alone.
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    const int error = posix_spawn(&process, "/proc/self/exe", &actions, nullptr, pointers, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(other);
    if (error != 0) {
        throw std::runtime_error("cannot start a server");
    }
}

void Server::serveAsProcess(const Peer& peer, const Cell& cell, const std::string& address) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pinToCore(coreOfServer(cell));
    peer.serve(cell, address, Control(inheritedEnd));
}

} // namespace rk::benchmarks
