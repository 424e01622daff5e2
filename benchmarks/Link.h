#pragma once

#include "Measuring.h"
#include "Peer.h"

#include <memory>
#include <string>

namespace rk::benchmarks {

// A Link is one end of a connection that sends and receives one message at a time:
//     Link(const End&)
//     void send(Payload&)
//     std::size_t receive()      the size of the payload that came: of the raw block, or of the message's bytes
// The peers whose ends are like that need say nothing else.

/// Serialises into room that is as long as the message.
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
            // A greeting may still be under way.
            count -= link.receive() == expected ? 1 : 0;
        }
    }

    void end() override {
        if (cell.requests()) {
            // Answered on the other wire: a server that ends may take its last reply with it.
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

/// Sends greetings until the client has met the server, then what is ordered.
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
