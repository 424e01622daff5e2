#include "Commands.h"
#include "Contestant.h"

#include <algorithm>
#include <memory>
#include <random>
#include <unistd.h>

// Every peer does the same work, cell by cell. Within a cell the peers take turns in a random order, so that other load
// on the machine affects them equally.

namespace rk::benchmarks {

namespace {

struct Options : Repetitions {
    std::vector<std::string> cells;
};

std::vector<Cell> allCells() {
    std::vector<Cell> cells;
    for (const char* const pattern : {"request-reply", "publish-subscribe"}) {
        for (const char* const transport : {"inproc", "ipc", "tcp"}) {
            for (const std::size_t size : {16U, 256U, 4096U, 65536U, 1048576U}) {
                cells.push_back({pattern, transport, "raw", size});
            }
            for (const std::size_t size : {64U, 4096U}) {
                cells.push_back({pattern, transport, "protobuf", size});
            }
        }
    }
    return cells;
}

/// Only serialises and parses, which every peer must do.
double serialiseOnly(const Cell& cell, int count) {
    const Payload payload = Payload::of(cell);
    Reading received;
    std::vector<char> buffer(bufferSize(cell));
    const int messages = cell.requests() ? 2 * count : count;
    const Stopwatch watch;
    for (int i = 0; i < messages; ++i) {
        const auto length = static_cast<int>(payload.message.ByteSizeLong());
        require(payload.message.SerializeToArray(buffer.data(), length) &&
                    received.ParseFromArray(buffer.data(), length),
                "serialising");
    }
    return watch.nanoseconds() / count;
}

void compareIn(const Cell& cell, int episode, const Options& options) {
    // A peer that loses messages must not block the others.
    ::alarm(300);
    std::vector<std::unique_ptr<Contestant>> contestants;
    for (const Peer& peer : peers()) {
        if (peer.transports.count(cell.transport) != 0) {
            contestants.push_back(std::make_unique<Contestant>(peer, cell));
            contestants.back()->client->meet();
        }
    }
    const int count =
        exchangesFor(options.milliseconds, cell, [&](int trial) { contestants.front()->client->exchange(trial); });
    std::mt19937 random(static_cast<unsigned int>(episode));
    for (int round = 0; round < options.rounds; ++round) {
        const auto report = [&](const std::string& peer, double nanoseconds) {
            write({{"cell", cell.text()}, {"peer", peer}},
                  {{"episode", episode}, {"round", round}, {"count", count}, {"nanoseconds", nanoseconds}});
        };
        std::shuffle(contestants.begin(), contestants.end(), random);
        for (const std::unique_ptr<Contestant>& contestant : contestants) {
            const Stopwatch watch;
            contestant->client->exchange(count);
            report(contestant->peer.name, watch.nanoseconds() / count);
        }
        if (!cell.raw()) {
            report("serialise only", serialiseOnly(cell, count));
        }
    }
}

void compare(const Options& options) {
    // The choice of cores affects the time more than the code does.
    pinToCore(0);
    for (const Peer& peer : peers()) {
        write({{"peer", peer.name}, {"version", peer.version}}, {});
    }
    std::vector<Cell> cells;
    std::transform(options.cells.begin(), options.cells.end(), std::back_inserter(cells), Cell::parse);
    for (int episode = 0; episode < options.episodes; ++episode) {
        for (const Cell& cell : cells.empty() ? allCells() : cells) {
            compareIn(cell, episode, options);
        }
    }
}

void serve(const std::string& name, const std::string& cell, const std::string& url) {
    Server::serveAsProcess(peerOf(name), {Cell::parse(cell), url, false});
}

} // namespace

void addComparison(CLI::App& program) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = program.add_subcommand("compare", "Let every peer do the same work");
    options->addTo(*command);
    command->add_option("CELL", options->cells, "such as \"request-reply tcp raw 4096\"; all if there is none");
    command->callback([options] { compare(*options); });

    const auto arguments = std::make_shared<std::vector<std::string>>();
    CLI::App* const server = program.add_subcommand("serve", "Be the server of PEER in CELL at URL, for `compare`");
    server->add_option("PEER CELL URL", *arguments)->expected(3)->required();
    server->callback([arguments] { serve((*arguments)[0], (*arguments)[1], (*arguments)[2]); });
}

} // namespace rk::benchmarks
