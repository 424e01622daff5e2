#pragma once

#include "support/ZmqHandle.h"

#include <rk/socket/Security.h>
#include <rk/socket/SocketEndpoint.h>

#include <gtest/gtest.h>
#include <zmq.h>

#include <string>

namespace rk::tests {

/// A plain ZeroMQ socket in a separate context, as in another process. Waits at most 20 seconds.
class CurvePeer {
public:
    explicit CurvePeer(int type) : socket(context.socket(type)) {
        set(ZMQ_LINGER, 0);
        set(ZMQ_RCVTIMEO, 20000);
        set(ZMQ_SNDTIMEO, 20000);
        set(ZMQ_RECONNECT_IVL, 10);
    }

    /// Becomes a client with these keys, which expects the server to have `serverKey`.
    CurvePeer& trustServer(const std::string& serverKey, const socket::Security::KeyPair& keys) {
        set(ZMQ_CURVE_SERVERKEY, serverKey);
        set(ZMQ_CURVE_PUBLICKEY, keys.publicKey);
        set(ZMQ_CURVE_SECRETKEY, keys.secretKey);
        return *this;
    }

    /// Becomes a server with these keys, which admits every client.
    CurvePeer& serveWith(const socket::Security::KeyPair& keys) {
        set(ZMQ_CURVE_SECRETKEY, keys.secretKey);
        set(ZMQ_CURVE_SERVER, 1);
        return *this;
    }

    CurvePeer& connect(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_connect(socket.get(), endpoint.toString(socket::Protocol::Req).c_str()));
        return *this;
    }

    CurvePeer& bind(const socket::SocketEndpoint& endpoint) {
        EXPECT_EQ(0, zmq_bind(socket.get(), endpoint.toString(socket::Protocol::Rep).c_str()));
        return *this;
    }

    void set(int option, int value) { zmq_setsockopt(socket.get(), option, &value, sizeof value); }
    void set(int option, const std::string& value) {
        EXPECT_EQ(0, zmq_setsockopt(socket.get(), option, value.data(), value.size()));
    }

    void send(const std::string& text) {
        EXPECT_EQ(static_cast<int>(text.size()), zmq_send(socket.get(), text.data(), text.size(), 0));
    }

    /// Receives a message of at most 256 bytes.
    std::string receive() {
        char buffer[256];
        const int size = zmq_recv(socket.get(), buffer, sizeof buffer, 0);
        EXPECT_LE(0, size);
        return size < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(size));
    }

    bool hasInputWithin(long milliseconds) {
        zmq_pollitem_t item{socket.get(), 0, ZMQ_POLLIN, 0};
        return zmq_poll(&item, 1, milliseconds) > 0;
    }

    /// Waits for one of these events of the socket's connections. The socket must not be connected yet.
    class Monitor {
    public:
        Monitor(CurvePeer& peer, int events) : pair(peer.context.socket(ZMQ_PAIR)) {
            EXPECT_EQ(0, zmq_socket_monitor(peer.socket.get(), "inproc://monitor", events));
            EXPECT_EQ(0, zmq_connect(pair.get(), "inproc://monitor"));
            const int patience = 20000;
            zmq_setsockopt(pair.get(), ZMQ_RCVTIMEO, &patience, sizeof patience);
        }

        bool waitForEvent() {
            char frame[256];
            return zmq_recv(pair.get(), frame, sizeof frame, 0) > 0 &&
                   zmq_recv(pair.get(), frame, sizeof frame, 0) >= 0;
        }

    private:
        ZmqHandle pair;
    };

private:
    ZmqContext context;
    ZmqHandle socket;
};

} // namespace rk::tests
