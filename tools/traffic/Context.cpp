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

void Context::admitClients() {
    if (ownKeys && !gatekeeper) {
        gatekeeper = std::make_unique<Gatekeeper>(context, *ownKeys);
    }
}

void Context::reportRefusals(const Complaints& complaints) const {
    if (gatekeeper) {
        for (const std::string& refusal : gatekeeper->takeRefusals()) {
            complaints.remark(refusal);
        }
    }
}

void Context::terminate() {
    // After the first signal, the end of the process frees the context.
    const bool wasStopped = stop.requested();
    while (context != nullptr && zmq_ctx_term(context) != 0 && errno == EINTR && (wasStopped || !stop.requested())) {
    }
    context = nullptr;
    gatekeeper.reset();
}

} // namespace rk::tools
