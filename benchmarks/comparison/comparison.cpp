#include "Payload.h"
#include "Peer.h"
#include "Server.h"
#include "support/Addresses.h"
#include "support/Pinning.h"
#include "support/Report.h"
#include "support/Stopwatch.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

// Lets every peer do the same work, cell by cell. Within a cell the peers take turns, in another order each round, so
// that whatever else the machine does strikes them alike. Writes every round of every peer as a line of JSON.
//
// usage: comparison EPISODES ROUNDS MILLISECONDS     in each episode all connections are made anew;
//                                                 a round of plain 0MQ takes about so many milliseconds

namespace rk::benchmarks {

namespace {

Peers makePeers() {
    Peers peers;
    peers.push_back(makePlainZmq());
    peers.push_back(makeRkSocket());
    peers.push_back(makeCppzmq());
    peers.push_back(makeCzmq());
    peers.push_back(makeNng());
    peers.push_back(makeGrpc());
    peers.push_back(makeIgnition());
    return peers;
}

std::vector<Cell> makeCells() {
    std::vector<Cell> cells;
    for (const Pattern pattern : {Pattern::RequestReply, Pattern::PublishSubscribe}) {
        for (const char* const transport : {"inproc", "ipc", "tcp"}) {
            for (const std::size_t size : {16U, 256U, 4096U, 65536U, 1048576U}) {
                cells.push_back({pattern, transport, Content::Raw, size});
            }
            for (const std::size_t size : {64U, 4096U}) {
                cells.push_back({pattern, transport, Content::ProtoBuf, size});
            }
        }
    }
    return cells;
}

struct Contestant {
    Contestant(const Peer& who, const Cell& cell)
        : peer(who),
          address(freshAddress(cell.transport)),
          server(who, cell, address),
          client(who.connect(cell, address, server.control())) {}
    ~Contestant() { client->end(); }

    const Peer& peer;
    const std::string address;
    // Left in the opposite order: the client's connection ends before the server is waited for.
    Server server;
    std::unique_ptr<Client> client;
};

/// The work on the messages alone: what no peer can do without.
double serialiseOnly(const Cell& cell, int count) {
    const Payload payload = Payload::of(cell);
    Reading received;
    std::vector<char> buffer(bufferSize(cell));
    const int messages = cell.pattern == Pattern::RequestReply ? 2 * count : count;
    const Stopwatch watch;
    for (int i = 0; i < messages; ++i) {
        const std::size_t length = payload.message.ByteSizeLong();
        if (!payload.message.SerializeToArray(buffer.data(), static_cast<int>(length)) ||
            !received.ParseFromArray(buffer.data(), static_cast<int>(length))) {
            throw std::runtime_error("not serialised");
        }
    }
    return watch.nanoseconds() / count;
}

/// How many exchanges fill the time, within what every peer's queue holds.
int exchangesFor(double milliseconds, Client& plain, const Cell& cell) {
    constexpr int trial = 20;
    plain.exchange(trial);
    const Stopwatch watch;
    plain.exchange(trial);
    const double each = watch.nanoseconds() / trial;
    const double most = cell.pattern == Pattern::RequestReply
                            ? 100000.0
                            : std::min(4000.0, 64.0 * 1048576.0 / static_cast<double>(cell.size));
    return static_cast<int>(std::clamp(milliseconds * 1e6 / each, 10.0, most));
}

void write(const Cell& cell, const std::string& peer, int episode, int round, int count, double nanoseconds) {
    Sample()
        .text("cell", cell.text())
        .text("peer", peer)
        .number("episode", episode)
        .number("round", round)
        .number("count", count)
        .number("nanoseconds", nanoseconds)
        .write();
}

void compareIn(const Cell& cell, const Peers& peers, int episode, int rounds, double milliseconds) {
    // A peer that loses messages must not hold up the rest for ever.
    ::alarm(300);
    std::vector<std::unique_ptr<Contestant>> contestants;
    for (const std::unique_ptr<Peer>& peer : peers) {
        if (peer->offers(cell)) {
            contestants.push_back(std::make_unique<Contestant>(*peer, cell));
            contestants.back()->client->meet();
        }
    }
    const int count = exchangesFor(milliseconds, *contestants.front()->client, cell);
    std::vector<Contestant*> order;
    for (const auto& contestant : contestants) {
        order.push_back(contestant.get());
    }
    std::mt19937 random(static_cast<unsigned int>(episode));
    for (int round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (Contestant* const contestant : order) {
            const Stopwatch watch;
            contestant->client->exchange(count);
            write(cell, contestant->peer.name(), episode, round, count, watch.nanoseconds() / count);
        }
        if (cell.content == Content::ProtoBuf) {
            write(cell, "serialise only", episode, round, count, serialiseOnly(cell, count));
        }
    }
}

const Peer& find(const Peers& peers, const std::string& name) {
    const auto found = std::find_if(peers.begin(), peers.end(), [&](const auto& peer) { return peer->name() == name; });
    if (found == peers.end()) {
        throw std::runtime_error("no peer: " + name);
    }
    return **found;
}

int run(const std::vector<std::string>& arguments) {
    // Where the two sides run decides more than what they do.
    pinToCore(0);
    const Peers peers = makePeers();
    if (arguments.size() == 4 && arguments[0] == "--serve") {
        Server::serveAsProcess(find(peers, arguments[1]), Cell::parse(arguments[2]), arguments[3]);
        return 0;
    }
    if (arguments.size() < 3) {
        std::fputs("usage: comparison EPISODES ROUNDS MILLISECONDS [CELL...]\n", stderr);
        return 2;
    }
    for (const std::unique_ptr<Peer>& peer : peers) {
        Sample().text("peer", peer->name()).text("version", peer->version()).write();
    }
    std::vector<Cell> cells = makeCells();
    if (arguments.size() > 3) {
        cells.clear();
        std::transform(arguments.begin() + 3, arguments.end(), std::back_inserter(cells), Cell::parse);
    }
    for (int episode = 0; episode < std::stoi(arguments[0]); ++episode) {
        for (const Cell& cell : cells) {
            compareIn(cell, peers, episode, std::stoi(arguments[1]), std::stod(arguments[2]));
        }
    }
    return 0;
}

} // namespace

} // namespace rk::benchmarks

int main(int argc, char** argv) {
    // Ignition Transport looks for its partners on this machine alone, and drops nothing.
    ::setenv("IGN_IP", "127.0.0.1", 1);
    ::setenv("IGN_TRANSPORT_RCVHWM", "0", 1);
    ::setenv("IGN_TRANSPORT_SNDHWM", "0", 1);
    try {
        return rk::benchmarks::run({argv + 1, argv + argc});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
