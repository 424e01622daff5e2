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
    // A context that a signal has kept from ending is left to the end of the process.
    while (context != nullptr && zmq_ctx_term(context) != 0 && errno == EINTR && !stop.requested()) {
    }
    context = nullptr;
}

} // namespace rk::tools
