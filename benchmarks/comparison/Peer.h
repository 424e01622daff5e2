#pragma once

#include "Cell.h"
#include "Control.h"

#include <memory>
#include <string>
#include <vector>

namespace rk::benchmarks {

/// The side that is measured: it requests, or subscribes.
class Client {
public:
    virtual ~Client() = default;

    /// Comes back once the two sides have met.
    virtual void meet() = 0;

    /// Requests and waits for the reply, `count` times; or orders and receives `count` payloads.
    virtual void exchange(int count) = 0;

    /// Makes the server end.
    virtual void end() = 0;
};

/// One of the ways to exchange messages that are compared.
class Peer {
public:
    virtual ~Peer() = default;

    virtual std::string name() const = 0;
    virtual std::string version() const = 0;

    /// Whether it can do the work of a cell.
    virtual bool offers(const Cell& cell) const = 0;

    /// The other side: replies to requests with their like, or publishes what is ordered, until it is ended.
    virtual void serve(const Cell& cell, const std::string& address, const Control& control) const = 0;

    virtual std::unique_ptr<Client> connect(const Cell& cell, const std::string& address,
                                            const Control& control) const = 0;
};

using Peers = std::vector<std::unique_ptr<Peer>>;

std::unique_ptr<Peer> makePlainZmq();
std::unique_ptr<Peer> makeRkSocket();
std::unique_ptr<Peer> makeCppzmq();
std::unique_ptr<Peer> makeCzmq();
std::unique_ptr<Peer> makeNng();
std::unique_ptr<Peer> makeGrpc();
std::unique_ptr<Peer> makeIgnition();

} // namespace rk::benchmarks
