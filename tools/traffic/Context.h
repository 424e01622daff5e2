#pragma once

#include "traffic/Gatekeeper.h"
#include "traffic/Keys.h"

#include <memory>

namespace rk::tools {

class Complaints;
class StopSignals;

/// The ZeroMQ context of a subcommand, with the keys of its sockets.
class Context {
public:
    /// Throws std::runtime_error if a key file cannot be used.
    Context(const KeyFiles& files, const StopSignals& stop);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    void* native() const { return context; }

    /// Null if nothing is encrypted.
    const Keys* keys() const { return ownKeys.get(); }

    /// Starts the gatekeeper if there are keys. Call it before a socket binds. Throws std::runtime_error.
    void admitClients();

    /// Remarks on clients that have been refused.
    void reportRefusals(const Complaints& complaints) const;

    /// Waits until the closed sockets have sent what their close policies want sent. A signal ends the wait.
    void terminate();

private:
    const StopSignals& stop;
    std::unique_ptr<Keys> ownKeys;
    void* context;
    std::unique_ptr<Gatekeeper> gatekeeper;
};

} // namespace rk::tools
