#include "traffic/Context.h"

#include "display/Complaints.h"
#include "system/StopSignals.h"

#include <zmq.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace rk::tools {

Context::Context(const KeyFiles& files, const StopSignals& stopSignals)
    : stop(stopSignals), ownKeys(files.own ? std::make_unique<Keys>(files) : nullptr), context(zmq_ctx_new()) {
    if (context == nullptr) {
        throw std::runtime_error(std::string("cannot start ZeroMQ: ") + std::strerror(errno));
    }
}

Context::~Context() {
    terminate();
}

void Context::secure(void* socket, const rk::socket::SocketEndpoint& endpoint, bool binds) {
    if (!ownKeys) {
        return;
    }
    if (endpoint.transport != rk::socket::Transport::Tcp) {
        throw std::runtime_error("ipc://" + endpoint.address + ": only TCP can be encrypted");
    }
    if (!binds) {
        ownKeys->encryptConnection(socket, endpoint);
        return;
    }
    if (!gatekeeper) {
        gatekeeper = std::make_unique<Gatekeeper>(context, *ownKeys);
    }
    ownKeys->encryptListener(socket);
}

void Context::reportRefusals(const Complaints& complaints) const {
    if (gatekeeper) {
        for (const std::string& refusal : gatekeeper->takeRefusals()) {
            complaints.remark(refusal);
        }
    }
}

void Context::terminate() {
    // The first signal ends the wait, and leaves the context to the end of the process.
    const bool wasStopped = stop.requested();
    while (context != nullptr && zmq_ctx_term(context) != 0 && errno == EINTR && (wasStopped || !stop.requested())) {
    }
    context = nullptr;
    gatekeeper.reset();
}

} // namespace rk::tools
