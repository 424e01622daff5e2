#include "Link.h"

#include <czmq.h>

namespace rk::benchmarks {

namespace {

void check(bool good) {
    require(good, "CZMQ");
}

zsock_t* open(int type) {
    // Both sides of an in-process connection open a socket at the same time, and the initialisation of CZMQ is not
    // thread-safe.
    static const bool ready = [] {
        zsys_handler_set(nullptr);
        return zsys_init() != nullptr;
    }();
    check(ready);
    return zsock_new(type);
}

class CzmqLink {
public:
    explicit CzmqLink(const End& end)
        : raw(end.cell.raw()), socket(open(end.choose(ZMQ_REQ, ZMQ_REP, ZMQ_SUB, ZMQ_PUB))) {
        check(socket != nullptr);
        zsock_set_linger(socket, 0);
        zsock_set_sndhwm(socket, end.cell.requests() ? 1000 : 0);
        zsock_set_rcvhwm(socket, end.cell.requests() ? 1000 : 0);
        const char* const url = end.url.c_str();
        check((end.isClient ? zsock_connect(socket, "%s", url) : zsock_bind(socket, "%s", url)) >= 0);
        if (end.choose(false, false, true, false)) {
            zsock_set_subscribe(socket, "");
        }
    }
    ~CzmqLink() { zsock_destroy(&socket); }
    CzmqLink(const CzmqLink&) = delete;
    CzmqLink& operator=(const CzmqLink&) = delete;

    void send(Payload& payload) {
        zframe_t* frame = nullptr;
        if (raw) {
            frame = zframe_new(payload.raw.data(), payload.raw.size());
        } else {
            const std::size_t length = payload.message.ByteSizeLong();
            frame = zframe_new(nullptr, length);
            serialise(payload.message, zframe_data(frame), length);
        }
        check(zframe_send(&frame, socket, 0) == 0);
    }

    std::size_t receive() {
        zframe_t* frame = zframe_recv(socket);
        check(frame != nullptr);
        const std::size_t length = zframe_size(frame);
        const std::size_t size = raw ? length : parse(message, zframe_data(frame), length);
        zframe_destroy(&frame);
        return size;
    }

private:
    const bool raw;
    zsock_t* socket;
    Reading message;
};

const bool added =
    addLinkPeer<CzmqLink>("CZMQ", std::to_string(CZMQ_VERSION_MAJOR) + "." + std::to_string(CZMQ_VERSION_MINOR) + "." +
                                      std::to_string(CZMQ_VERSION_PATCH));

} // namespace

} // namespace rk::benchmarks
