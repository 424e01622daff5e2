#pragma once

#include "Cell.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace rk::benchmarks {

/// One end of a connection in a cell. The client is the measured side: it requests or subscribes.
struct End {
    Cell cell;
    std::string url;
    bool isClient = false;

    template <class Type>
    Type choose(Type request, Type reply, Type subscribe, Type publish) const {
        return cell.requests() ? (isClient ? request : reply) : (isClient ? subscribe : publish);
    }
};

/// A second connection between the two sides, for control.
class Control {
public:
    explicit Control(int end) : descriptor(end) {}

    /// Tells the server to publish `count` payloads, or to end if that is 0.
    void order(std::uint32_t count) const;

    /// Waits for the next order and returns it. Returns 0 if the other side has ended.
    std::uint32_t awaitOrder() const;

    /// Returns whether an order arrives within this time.
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

    /// Returns once the two sides can exchange payloads.
    virtual void meet() = 0;

    /// Requests and waits for the reply `count` times, or orders and receives `count` payloads.
    virtual void exchange(int count) = 0;

    /// Ends the server.
    virtual void end() = 0;
};

/// One of the compared ways to exchange messages.
struct Peer {
    std::string name;
    std::string version;
    std::set<std::string> transports;

    /// Runs the server until the client ends it. It echoes requests, or publishes the ordered payloads.
    std::function<void(const End&, const Control&)> serve;

    std::function<std::unique_ptr<Client>(const End&, const Control&)> connect;
};

/// Returns the peers of this build, plain ZeroMQ first.
const std::vector<Peer>& peers();

/// \throws std::runtime_error if there is none of this name
const Peer& peerOf(const std::string& name);

/// Adds a peer. The source file of each peer calls it before `main`.
bool add(Peer peer);

} // namespace rk::benchmarks
