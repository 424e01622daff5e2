#pragma once

#include "Measuring.h"
#include "Server.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>

namespace rk::benchmarks {

/// How often a comparison repeats its measurements.
struct Repetitions {
    int episodes = 0;
    int rounds = 0;
    double milliseconds = 0;

    void addTo(CLI::App& command) {
        command.add_option("EPISODES", episodes, "in each, all connections are new")->required();
        command.add_option("ROUNDS", rounds, "of each cell in an episode")->required();
        command.add_option("MILLISECONDS", milliseconds, "the approximate time of a round of plain ZeroMQ")->required();
    }
};

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
    // Destroyed in the opposite order: the client disconnects before the destructor waits for the server's end.
    Server server;
    std::unique_ptr<Client> client;
};

/// Returns how many exchanges fill the time, and at most the number that every peer's queue holds.
/// \param exchange performs the given number of exchanges
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
