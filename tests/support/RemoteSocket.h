#pragma once

#include "support/NativeSocket.h"

#include <rk/socket/Security.h>

namespace rk::tests {

/// A native socket in a separate context, as in another process.
class RemoteSocket : ZmqContext, public NativeSocket {
public:
    explicit RemoteSocket(int type) : NativeSocket(socket(type)) { set(ZMQ_RECONNECT_IVL, 10); }

    /// Becomes a client with these keys, which expects the server to have `serverKey`.
    RemoteSocket& trustServer(const std::string& serverKey, const socket::Security::KeyPair& keys) {
        set(ZMQ_CURVE_SERVERKEY, serverKey);
        set(ZMQ_CURVE_PUBLICKEY, keys.publicKey);
        set(ZMQ_CURVE_SECRETKEY, keys.secretKey);
        return *this;
    }

    /// Becomes a server with these keys, which admits every client.
    RemoteSocket& serveWith(const socket::Security::KeyPair& keys) {
        set(ZMQ_CURVE_SECRETKEY, keys.secretKey);
        set(ZMQ_CURVE_SERVER, 1);
        return *this;
    }

    /// Waits for one of these events of the socket's connections. The socket must not be connected yet.
    class Monitor {
    public:
        Monitor(RemoteSocket& watched, int events) : pair(watched.socket(ZMQ_PAIR)) {
            EXPECT_EQ(0, zmq_socket_monitor(watched.get(), "inproc://monitor", events));
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
};

} // namespace rk::tests
