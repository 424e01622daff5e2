#include "Server.h"

#include "Measuring.h"

#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::benchmarks {

namespace {

/// The client runs on core 0. Both sides of a round trip share it, because they take turns, and waking another core
/// takes time. A publisher runs on another core than its subscriber.
unsigned int coreOfServer(const Cell& cell) {
    return cell.requests() ? 0 : 1;
}

} // namespace

Server::Server(const Peer& peer, const End& end) {
    if (end.cell.transport != "inproc") {
        process = std::make_unique<Process>(std::vector<std::string>{"serve", peer.name, end.cell.text(), end.url});
        return;
    }
    require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    thread = std::thread([&peer, end, wire = ends[1]] {
        pinToCore(coreOfServer(end.cell));
        peer.serve(end, Control(wire));
    });
}

Server::~Server() {
    if (thread.joinable()) {
        thread.join();
        ::close(ends[0]);
        ::close(ends[1]);
    }
}

void Server::serveAsProcess(const Peer& peer, const End& end) {
    const Control control = Process::startedAs();
    pinToCore(coreOfServer(end.cell));
    peer.serve(end, control);
}

} // namespace rk::benchmarks
