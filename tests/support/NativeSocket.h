#pragma once

#include "support/ZmqHandle.h"

#include <rk/socket/SocketContext.h>
#include <rk/socket/SocketEndpoint.h>

#include <gtest/gtest.h>
#include <zmq.h>

#include <string>

namespace rk::tests {

/// A bare ZeroMQ socket in the library's context. The journal does not record its calls. Waits at most 20 seconds.
class NativeSocket {
public:
    explicit NativeSocket(socket::Protocol::Protocol pattern) : protocol(pattern), handle(socket::getSocket(pattern)) {
        set(ZMQ_LINGER, 0);
        set(ZMQ_RCVTIMEO, 20000);
        set(ZMQ_SNDTIMEO, 20000);
    }

    /// Binds or connects according to the pattern.
    NativeSocket(socket::Protocol::Protocol pattern, const socket::SocketEndpoint& endpoint) : NativeSocket(pattern) {
        const bool binds = pattern == socket::Protocol::Pub || pattern == socket::Protocol::Rep;
        binds ? bind(endpoint) : connect(endpoint);
    }

    void bind(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_bind(handle.get(), endpoint.toString(protocol).c_str()));
    }

    void connect(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_connect(handle.get(), endpoint.toString(protocol).c_str()));
    }

    /// Makes a publisher process the subscriptions of this process. A query of its events makes ZeroMQ handle its
    /// peers' commands first.
    void join() { hasInput(); }

    bool hasInput() {
        zmq_pollitem_t item{handle.get(), 0, ZMQ_POLLIN, 0};
        return zmq_poll(&item, 1, 0) > 0;
    }

    void send(const std::string& text, int flags = 0) {
        EXPECT_EQ(static_cast<int>(text.size()), zmq_send(handle.get(), text.data(), text.size(), flags));
    }

    bool hasMore() { return optionOf(handle.get(), ZMQ_RCVMORE) != 0; }

    /// Receives a frame of at most 256 bytes.
    std::string receive() {
        char buffer[256];
        const int size = zmq_recv(handle.get(), buffer, sizeof buffer, 0);
        EXPECT_LE(0, size);
        return size < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(size));
    }

private:
    void set(int option, int value) { zmq_setsockopt(handle.get(), option, &value, sizeof value); }

    socket::Protocol::Protocol protocol;
    ZmqHandle handle;
};

} // namespace rk::tests
