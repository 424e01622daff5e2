#include "Commands.h"
#include "Contestant.h"
#include "KeyFiles.h"
#include "Process.h"

#include <rk/socket/Security.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <random>
#include <unistd.h>

// Each peer that can encrypt takes part twice, in plain and encrypted. A process of the library is either, so each
// contestant runs in another process.

namespace rk::benchmarks {

namespace {

std::vector<Cell> cellsInPlain() {
    std::vector<Cell> cells;
    for (const char* const pattern : {"request-reply", "publish-subscribe"}) {
        for (const std::size_t size : {64U, 1024U, 16384U, 262144U, 1048576U}) {
            cells.push_back({pattern, "tcp", "raw", size});
        }
    }
    return cells;
}

Cell encrypted(Cell cell) {
    cell.transport = "encrypted";
    return cell;
}

/// A contestant in another process, which measures itself.
class RemoteContestant {
public:
    RemoteContestant(const Peer& peer, const Cell& cell)
        : name(peer.name),
          security(cell.encrypted() ? "encrypted" : "plain"),
          process({"contest", name, cell.text()}) {}
    ~RemoteContestant() { process.control().order(0); }
    RemoteContestant(const RemoteContestant&) = delete;
    RemoteContestant& operator=(const RemoteContestant&) = delete;

    /// Returns the nanoseconds of one exchange.
    double exchange(int count) const {
        process.control().order(static_cast<std::uint32_t>(count));
        return process.control().awaitReport();
    }

    const std::string name;
    const std::string security;

private:
    const Process process;
};

void contest(const std::string& name, const std::string& text) {
    const Control control = Process::startedAs();
    const Contestant contestant(peerOf(name), Cell::parse(text));
    contestant.client->meet();
    while (const std::uint32_t count = control.awaitOrder()) {
        const Stopwatch watch;
        contestant.client->exchange(static_cast<int>(count));
        control.report(watch.nanoseconds() / count);
    }
}

void compareIn(const Cell& cell, int episode, const Repetitions& options) {
    // A peer that loses messages must not block the rest.
    ::alarm(300);
    std::vector<std::unique_ptr<RemoteContestant>> contestants;
    for (const Peer& peer : peers()) {
        if (peer.transports.count("encrypted") != 0) {
            contestants.push_back(std::make_unique<RemoteContestant>(peer, cell));
            contestants.push_back(std::make_unique<RemoteContestant>(peer, encrypted(cell)));
        }
    }
    const int count =
        exchangesFor(options.milliseconds, cell, [&](int trial) { contestants.front()->exchange(trial); });
    std::mt19937 random(static_cast<unsigned int>(episode));
    for (int round = 0; round < options.rounds; ++round) {
        std::shuffle(contestants.begin(), contestants.end(), random);
        for (const std::unique_ptr<RemoteContestant>& contestant : contestants) {
            write({{"cell", cell.text()}, {"peer", contestant->name}, {"security", contestant->security}},
                  {{"episode", episode},
                   {"round", round},
                   {"count", count},
                   {"nanoseconds", contestant->exchange(count)}});
        }
    }
}

void writeCurveKeys() {
    const socket::Security::KeyPair keys = socket::Security::generateKeyPair();
    socket::Security::writeKeyFile(keys, keyFile);
    std::ofstream(trustedKeysFile) << keys.publicKey << " client\n" << keys.publicKey << " tcp://127.0.0.1:*\n";
}

void compare(const Repetitions& options) {
    pinToCore(0);
    writeCurveKeys();
    for (int episode = 0; episode < options.episodes; ++episode) {
        for (const Cell& cell : cellsInPlain()) {
            compareIn(cell, episode, options);
        }
    }
}

} // namespace

void addEncryption(CLI::App& program) {
    const auto options = std::make_shared<Repetitions>();
    CLI::App* const command = program.add_subcommand(
        "encryption", "Measure what encryption costs, in a folder with a certificate for localhost and its key");
    options->addTo(*command);
    command->callback([options] { compare(*options); });

    const auto arguments = std::make_shared<std::vector<std::string>>();
    CLI::App* const contestant = program.add_subcommand("contest", "Be PEER in CELL, for `encryption`");
    contestant->add_option("PEER CELL", *arguments)->expected(2)->required();
    contestant->callback([arguments] { contest((*arguments)[0], (*arguments)[1]); });
}

} // namespace rk::benchmarks
