#pragma once

#include "support/ZmqHandle.h"

#include <rk/socket/SocketContext.h>
#include <rk/socket/SocketEndpoint.h>

#include <gtest/gtest.h>
#include <zmq.h>

#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

using Frames = std::vector<std::string>;

/// A bare ZeroMQ socket in the library's context. The journal does not record its calls. Waits at most 20 seconds.
class NativeSocket {
public:
    explicit NativeSocket(socket::Protocol::Protocol pattern) : NativeSocket(ZmqHandle(socket::getSocket(pattern))) {}

    /// Binds or connects according to the pattern.
    NativeSocket(socket::Protocol::Protocol pattern, const socket::SocketEndpoint& endpoint) : NativeSocket(pattern) {
        const bool binds = pattern == socket::Protocol::Pub || pattern == socket::Protocol::Rep;
        binds ? bind(endpoint) : connect(endpoint);
    }

    NativeSocket& bind(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_bind(get(), endpoint.toString(socket::Protocol::Rep).c_str()));
        return *this;
    }

    NativeSocket& connect(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_connect(get(), endpoint.toString(socket::Protocol::Req).c_str()));
        return *this;
    }

    void set(int option, int value) { EXPECT_EQ(0, zmq_setsockopt(get(), option, &value, sizeof value)); }
    void set(int option, const std::string& value) {
        EXPECT_EQ(0, zmq_setsockopt(get(), option, value.data(), value.size()));
    }

    /// Makes a publisher process the subscriptions of this process. A query of its events makes ZeroMQ handle its
    /// peers' commands first.
    void join() { hasInputWithin(0); }

    bool hasInputWithin(long milliseconds) {
        zmq_pollitem_t item{get(), 0, ZMQ_POLLIN, 0};
        return zmq_poll(&item, 1, milliseconds) > 0;
    }

    void send(const std::string& text, int flags = 0) {
        EXPECT_EQ(static_cast<int>(text.size()), zmq_send(get(), text.data(), text.size(), flags));
    }

    void sendFrames(const Frames& frames) {
        for (const std::string& frame : frames) {
            send(frame, &frame == &frames.back() ? 0 : ZMQ_SNDMORE);
        }
    }

    /// Receives a frame of at most 256 bytes.
    std::string receive() {
        char buffer[256];
        const int size = zmq_recv(get(), buffer, sizeof buffer, 0);
        EXPECT_LE(0, size);
        return size < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(size));
    }

    Frames receiveFrames() {
        Frames frames;
        do {
            frames.push_back(receive());
        } while (optionOf(get(), ZMQ_RCVMORE) != 0);
        return frames;
    }

    void* get() const { return handle.get(); }

protected:
    explicit NativeSocket(ZmqHandle own) : handle(std::move(own)) {
        set(ZMQ_LINGER, 0);
        set(ZMQ_RCVTIMEO, 20000);
        set(ZMQ_SNDTIMEO, 20000);
    }

private:
    ZmqHandle handle;
};

} // namespace rk::tests
