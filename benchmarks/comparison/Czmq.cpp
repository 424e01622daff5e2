#include "LinkPeer.h"
#include "ZmqAddress.h"

#include <czmq.h>
#include <memory>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

void check(bool good) {
    if (!good) {
        throw std::runtime_error("CZMQ failed");
    }
}

int nativeType(const Cell& cell, Side side) {
    if (cell.pattern == Pattern::RequestReply) {
        return side == Side::Client ? ZMQ_REQ : ZMQ_REP;
    }
    return side == Side::Client ? ZMQ_SUB : ZMQ_PUB;
}

class CzmqLink {
public:
    CzmqLink(const Cell& cell, Side side, const std::string& address)
        : content(cell.content), socket(zsock_new(nativeType(cell, side))) {
        check(socket != nullptr);
        zsock_set_linger(socket, 0);
        zsock_set_sndhwm(socket, cell.pattern == Pattern::PublishSubscribe ? 0 : 1000);
        zsock_set_rcvhwm(socket, cell.pattern == Pattern::PublishSubscribe ? 0 : 1000);
        const std::string url = urlOf(cell, address);
        check((side == Side::Client ? zsock_connect(socket, "%s", url.c_str())
                                    : zsock_bind(socket, "%s", url.c_str())) >= 0);
        if (side == Side::Client && cell.pattern == Pattern::PublishSubscribe) {
            zsock_set_subscribe(socket, "");
        }
    }
    ~CzmqLink() { zsock_destroy(&socket); }
    CzmqLink(const CzmqLink&) = delete;
    CzmqLink& operator=(const CzmqLink&) = delete;

    void send(Payload& payload) {
        zframe_t* frame = nullptr;
        if (content == Content::Raw) {
            frame = zframe_new(payload.raw.data(), payload.raw.size());
        } else {
            const std::size_t length = payload.message.ByteSizeLong();
            frame = zframe_new(nullptr, length);
            check(payload.message.SerializeToArray(zframe_data(frame), static_cast<int>(length)));
        }
        check(zframe_send(&frame, socket, 0) == 0);
    }

    std::size_t receive() {
        zframe_t* frame = zframe_recv(socket);
        check(frame != nullptr);
        std::size_t size = zframe_size(frame);
        if (content == Content::ProtoBuf) {
            check(received.ParseFromArray(zframe_data(frame), static_cast<int>(size)));
            size = received.payload().size();
        }
        zframe_destroy(&frame);
        return size;
    }

private:
    const Content content;
    zsock_t* socket;
    Reading received;
};

std::string czmqVersion() {
    return std::to_string(CZMQ_VERSION_MAJOR) + "." + std::to_string(CZMQ_VERSION_MINOR) + "." +
           std::to_string(CZMQ_VERSION_PATCH);
}

} // namespace

std::unique_ptr<Peer> makeCzmq() {
    zsys_handler_set(nullptr);
    // Else both sides of an in-process connection would do it, at once.
    zsys_init();
    return std::make_unique<LinkPeer<CzmqLink>>("CZMQ", czmqVersion());
}

} // namespace rk::benchmarks
