#pragma once

#include "Payload.h"
#include "Peer.h"

#include <utility>

namespace rk::benchmarks {

enum class Side {
    Client,
    Server
};

// A Link is one end of a connection that sends and receives one message at a time:
//     Link(const Cell&, Side, const std::string& address)
//     void send(Payload&)
//     std::size_t receive()      the size of the payload that came: of the raw block, or of the message's bytes
// The peers whose ends are like that need say nothing else.

inline std::size_t sizeOf(const Payload& payload, Content content) {
    return content == Content::Raw ? payload.raw.size() : payload.message.payload().size();
}

template <class Link>
class LinkClient final : public Client {
public:
    LinkClient(const Cell& measured, const std::string& address, const Control& wire)
        : cell(measured), control(wire), link(measured, Side::Client, address) {}

    void meet() override {
        if (cell.pattern == Pattern::RequestReply) {
            exchange(1);
        } else {
            link.receive();
        }
    }

    void exchange(int count) override {
        if (cell.pattern == Pattern::RequestReply) {
            for (int i = 0; i < count; ++i) {
                link.send(payload);
                link.receive();
            }
        } else {
            control.order(static_cast<std::uint32_t>(count));
            while (count > 0) {
                // A greeting may still be under way.
                count -= link.receive() == expected ? 1 : 0;
            }
        }
    }

    void end() override {
        if (cell.pattern == Pattern::RequestReply) {
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
    const std::size_t expected = sizeOf(payload, cell.content);
    Link link;
};

template <class Link>
class LinkPeer final : public Peer {
public:
    LinkPeer(std::string peerName, std::string peerVersion)
        : ownName(std::move(peerName)), ownVersion(std::move(peerVersion)) {}

    std::string name() const override { return ownName; }
    std::string version() const override { return ownVersion; }
    bool offers(const Cell&) const override { return true; }

    void serve(const Cell& cell, const std::string& address, const Control& control) const override {
        Link link(cell, Side::Server, address);
        if (cell.pattern == Pattern::RequestReply) {
            reply(link, cell, control);
        } else {
            publish(link, cell, control);
        }
    }

    std::unique_ptr<Client> connect(const Cell& cell, const std::string& address,
                                    const Control& control) const override {
        return std::make_unique<LinkClient<Link>>(cell, address, control);
    }

private:
    static void reply(Link& link, const Cell& cell, const Control& control) {
        Payload payload = Payload::of(cell);
        const std::size_t expected = sizeOf(payload, cell.content);
        while (link.receive() == expected) {
            link.send(payload);
        }
        control.order(1);
    }

    static void publish(Link& link, const Cell& cell, const Control& control) {
        Payload payload = Payload::of(cell);
        Payload greeting = Payload::small();
        do {
            link.send(greeting);
        } while (!control.hasOrder(5));
        while (std::uint32_t count = control.awaitOrder()) {
            while (count-- > 0) {
                link.send(payload);
            }
        }
    }

    std::string ownName;
    std::string ownVersion;
};

} // namespace rk::benchmarks
