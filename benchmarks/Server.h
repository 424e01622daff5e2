#pragma once

#include "Peer.h"
#include "Process.h"

#include <memory>
#include <thread>

namespace rk::benchmarks {

/// The server of a cell: a process, or a thread for inproc.
class Server {
public:
    Server(const Peer& peer, const End& end);

    /// Waits for the server, which the client has ended.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    Control control() const { return process ? process->control() : Control(ends[0]); }

    /// Runs the server in a process that was started for it.
    static void serveAsProcess(const Peer& peer, const End& end);

private:
    int ends[2] = {-1, -1};
    std::unique_ptr<Process> process;
    std::thread thread;
};

} // namespace rk::benchmarks
