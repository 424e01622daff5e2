#pragma once

#include "Cell.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace rk::benchmarks {

/// One end of a connection in a cell. The client is the side that is measured: it requests, or subscribes.
struct End {
    Cell cell;
    std::string url;
    bool isClient = false;

    template <class Type>
    Type choose(Type request, Type reply, Type subscribe, Type publish) const {
        return cell.requests() ? (isClient ? request : reply) : (isClient ? subscribe : publish);
    }
};

/// Connects the two sides of a measurement beside the connection that is measured.
class Control {
public:
    explicit Control(int end) : descriptor(end) {}

    /// Tells the server to publish `count` payloads, or to end if that is 0.
    void order(std::uint32_t count) const;

    /// The next order. 0 also when the other side is gone.
    std::uint32_t awaitOrder() const;

    /// Whether an order comes within some milliseconds.
    bool hasOrder(int milliseconds) const;

    /// Tells the other side what was measured.
    void report(double nanoseconds) const;

    /// The next report.
    /// \throws std::runtime_error if the other side is gone
    double awaitReport() const;

private:
    int descriptor;
};

class Client {
public:
    virtual ~Client() = default;

    /// Comes back once the two sides have met.
    virtual void meet() = 0;

    /// Requests and waits for the reply `count` times, or orders and receives `count` payloads.
    virtual void exchange(int count) = 0;

    /// Makes the server end.
    virtual void end() = 0;
};

/// One of the ways to exchange messages that are compared.
struct Peer {
    std::string name;
    std::string version;
    std::set<std::string> transports;

    /// The other side: replies to requests with their like, or publishes what is ordered, until it is ended.
    std::function<void(const End&, const Control&)> serve;

    std::function<std::unique_ptr<Client>(const End&, const Control&)> connect;
};

/// The peers that the program is built with, plain 0MQ first.
const std::vector<Peer>& peers();

/// \throws std::runtime_error if there is none of this name
const Peer& peerOf(const std::string& name);

/// Adds a peer. The file of each does so before `main`.
bool add(Peer peer);

} // namespace rk::benchmarks
