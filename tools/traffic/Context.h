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
    /// Throws std::runtime_error when the key files are no good.
    Context(const KeyFiles& files, const StopSignals& stop);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    void* native() const { return context; }

    /// Null if nothing is encrypted.
    const Keys* keys() const { return ownKeys.get(); }

    /// Encrypts the endpoint that `socket` binds or connects to next, if there are keys. Throws std::runtime_error.
    void secure(void* socket, const rk::socket::SocketEndpoint& endpoint, bool binds);

    /// Remarks on clients that have been refused.
    void reportRefusals(const Complaints& complaints) const;

    /// Waits until the sockets, which are closed, have sent what their close policies want sent. A signal ends the wait.
    void terminate();

private:
    const StopSignals& stop;
    std::unique_ptr<Keys> ownKeys;
    void* context;
    std::unique_ptr<Gatekeeper> gatekeeper;
};

} // namespace rk::tools
