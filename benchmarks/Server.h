#pragma once

#include "Peer.h"
#include "Process.h"

#include <memory>
#include <thread>

namespace rk::benchmarks {

/// The other side of a cell: a process, or a thread where the transport does not leave the process.
class Server {
public:
    Server(const Peer& peer, const End& end);

    /// Waits for the end, which the client has asked for.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    Control control() const { return process ? process->control() : Control(ends[0]); }

    /// For the program when it is started to be a server.
    static void serveAsProcess(const Peer& peer, const End& end);

private:
    int ends[2] = {-1, -1};
    std::unique_ptr<Process> process;
    std::thread thread;
};

} // namespace rk::benchmarks
