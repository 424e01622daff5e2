#pragma once

#include "Signals.h"

#include <rk/socket/SocketContext.h>

#include <zmq.h>

#include <memory>
#include <stdexcept>

namespace rk::tests {

/// Closes a native ZeroMQ socket.
struct ZmqClose {
    void operator()(void* socket) const { zmq_close(socket); }
};

/// A native ZeroMQ socket that the test owns.
using ZmqHandle = std::unique_ptr<void, ZmqClose>;

/// A second ZeroMQ context, for the test. Its destructor waits until every socket in it is closed.
class ZmqContext {
public:
    ZmqContext() : handle(zmq_ctx_new()) {}
    ~ZmqContext() { zmq_ctx_term(handle); }
    ZmqContext(const ZmqContext&) = delete;
    ZmqContext& operator=(const ZmqContext&) = delete;

    /// Returns a socket that the library closes.
    void* handleOf(int type) { return zmq_socket(handle, type); }

    ZmqHandle socket(int type) { return ZmqHandle(handleOf(type)); }

private:
    void* const handle;
};

/// Creates the library's context, so that later journals do not show its creation.
class ContextOfTheProcess {
public:
    ContextOfTheProcess() {
        sigset_t all;
        sigfillset(&all);
        // The context's threads inherit the mask. They block signals themselves, but only once they run.
        const BlockedSignals block(all);
        ZmqHandle(socket::getSocket(socket::Protocol::Pub)).reset();
    }
};

/// Returns the value of a numeric option.
inline int optionOf(void* socket, int option) {
    int value = 0;
    std::size_t size = sizeof value;
    if (zmq_getsockopt(socket, option, &value, &size) != 0) {
        throw std::runtime_error(zmq_strerror(zmq_errno()));
    }
    return value;
}

} // namespace rk::tests
