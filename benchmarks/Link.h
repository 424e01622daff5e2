#pragma once

#include "Measuring.h"
#include "Peer.h"

#include <memory>
#include <string>

namespace rk::benchmarks {

// A Link is one end of a connection that sends and receives one message at a time:
//     Link(const End&)
//     void send(Payload&)
//     std::size_t receive()      returns the size of the raw block, or of the message's payload
// A peer with such an end needs no other code.

/// Serialises into a buffer of the message's size.
inline void serialise(const Reading& message, void* room, std::size_t size) {
    require(message.SerializeToArray(room, static_cast<int>(size)), "serialising");
}

/// Parses a message and returns the size of its payload.
inline std::size_t parse(Reading& message, const void* data, std::size_t size) {
    require(message.ParseFromArray(data, static_cast<int>(size)), "parsing");
    return message.payload().size();
}

template <class Link>
class LinkClient final : public Client {
public:
    LinkClient(const End& end, const Control& wire) : cell(end.cell), control(wire), link(end) {}

    void meet() override {
        if (cell.requests()) {
            exchange(1);
        } else {
            link.receive();
        }
    }

    void exchange(int count) override {
        if (cell.requests()) {
            for (int i = 0; i < count; ++i) {
                link.send(payload);
                link.receive();
            }
            return;
        }
        control.order(static_cast<std::uint32_t>(count));
        while (count > 0) {
            // A greeting may still arrive.
            count -= link.receive() == expected ? 1 : 0;
        }
    }

    void end() override {
        if (cell.requests()) {
            // The server confirms over `control`, because its last reply may be lost when it ends.
            link.send(goodbye);
            control.awaitOrder();
        } else {
            control.order(0);
        }
    }

private:
    const Cell cell;
    const Control control;
    Payload payload = Payload::of(cell);
    Payload goodbye = Payload::small();
    const std::size_t expected = payload.sizeIn(cell);
    Link link;
};

/// Sends greetings until the client has received one, then the ordered payloads.
template <class Send>
void publishOrders(const Control& control, const Cell& cell, const Send& send) {
    Payload payload = Payload::of(cell);
    Payload greeting = Payload::small();
    do {
        send(greeting);
    } while (!control.hasOrder(5));
    while (std::uint32_t count = control.awaitOrder()) {
        while (count-- > 0) {
            send(payload);
        }
    }
}

template <class Link>
void serveLink(const End& end, const Control& control) {
    Link link(end);
    if (!end.cell.requests()) {
        publishOrders(control, end.cell, [&link](Payload& payload) { link.send(payload); });
        return;
    }
    Payload payload = Payload::of(end.cell);
    while (link.receive() == payload.sizeIn(end.cell)) {
        link.send(payload);
    }
    control.order(1);
}

template <class Link>
bool addLinkPeer(const std::string& name, const std::string& version,
                 const std::set<std::string>& transports = {"inproc", "ipc", "tcp"}) {
    return add({name, version, transports, serveLink<Link>, [](const End& end, const Control& control) {
                    return std::make_unique<LinkClient<Link>>(end, control);
                }});
}

} // namespace rk::benchmarks
