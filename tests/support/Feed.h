#pragma once

#include "support/Endpoints.h"

#include <rk/socket/Socket.h>

#include <string>

namespace rk::tests {

/// A publish and a subscribe socket of this process, joined: what the one has sent, the other can receive at once.
///
/// Each can be told the length of its queue before it is connected.
class Feed {
public:
    static constexpr int defaultQueue = -1;

    explicit Feed(int publisherQueue = defaultQueue, int subscriberQueue = defaultQueue) {
        open(publisher, socket::Protocol::Pub, publisherQueue);
        open(subscriber, socket::Protocol::Sub, subscriberQueue);
        join();
    }

    /// Lets the publisher take note of the subscription: asked for its events, 0MQ first does what peers have told it.
    void join() {
        std::string ignored;
        publisher.poll(0, ignored);
    }

    const socket::SocketEndpoint endpoint = freshEndpoint(socket::Transport::Inproc);
    socket::Socket publisher{"source", socket::ClosePolicy::DropPending};
    socket::Socket subscriber{"feed", socket::ClosePolicy::DropPending};

private:
    void open(socket::Socket& socket, socket::Protocol::Protocol protocol, int queue) const {
        socket.create(protocol);
        if (queue != defaultQueue) {
            socket.setInternalFifoSize(queue);
        }
        socket.connect(endpoint, 20000);
    }
};

} // namespace rk::tests
