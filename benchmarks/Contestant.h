#pragma once

#include "Measuring.h"
#include "Server.h"

#include <algorithm>
#include <memory>
#include <string>

namespace rk::benchmarks {

/// Both sides of a peer in a cell.
struct Contestant {
    Contestant(const Peer& who, const Cell& cell)
        : peer(who),
          url(freshUrl(cell.encrypted() ? "tcp" : cell.transport)),
          server(who, {cell, url, false}),
          client(who.connect({cell, url, true}, server.control())) {}
    ~Contestant() { client->end(); }

    const Peer& peer;
    const std::string url;
    // Left in the opposite order: the client's connection ends before the server is waited for.
    Server server;
    std::unique_ptr<Client> client;
};

/// How many exchanges fill the time, within what every peer's queue holds. `exchange` is called with a number of them.
template <class Exchange>
int exchangesFor(double milliseconds, const Cell& cell, const Exchange& exchange) {
    constexpr int trial = 20;
    exchange(trial);
    const Stopwatch watch;
    exchange(trial);
    const double each = watch.nanoseconds() / trial;
    const double most =
        cell.requests() ? 100000.0 : std::min(4000.0, 64.0 * 1048576.0 / static_cast<double>(cell.size));
    return static_cast<int>(std::clamp(milliseconds * 1e6 / each, 10.0, most));
}

} // namespace rk::benchmarks
