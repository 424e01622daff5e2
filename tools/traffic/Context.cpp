#include "traffic/Context.h"

#include "system/StopSignals.h"

#include <zmq.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace rk::tools {

Context::Context(const StopSignals& stopSignals) : stop(stopSignals), context(zmq_ctx_new()) {
    if (context == nullptr) {
        throw std::runtime_error(std::string("cannot start ZeroMQ: ") + std::strerror(errno));
    }
}

Context::~Context() {
    terminate();
}

void Context::terminate() {
    // The first signal ends the wait, and leaves the context to the end of the process.
    const bool wasStopped = stop.requested();
    while (context != nullptr && zmq_ctx_term(context) != 0 && errno == EINTR && (wasStopped || !stop.requested())) {
    }
    context = nullptr;
}

} // namespace rk::tools
