#pragma once

#include "support/Endpoints.h"

#include <rk/socket/Socket.h>

#include <string>

namespace rk::tests {

/// A connected pair of a publish and a subscribe socket. The subscriber can receive each message right after it was
/// sent.
///
/// The constructor can set the length of each queue before it connects.
class Feed {
public:
    static constexpr int defaultQueue = -1;

    explicit Feed(int publisherQueue = defaultQueue, int subscriberQueue = defaultQueue) {
        open(publisher, socket::Protocol::Pub, publisherQueue);
        open(subscriber, socket::Protocol::Sub, subscriberQueue);
        join();
    }

    /// Makes the publisher process the subscription. A query of its events makes ZeroMQ handle its peers' commands
    /// first.
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
