#include "LinkPeer.h"
#include "ZmqAddress.h"

#include <zmq.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

void check(bool good) {
    if (!good) {
        throw std::runtime_error(std::string("0MQ: ") + zmq_strerror(zmq_errno()));
    }
}

void* context() {
    static void* const instance = zmq_ctx_new();
    return instance;
}

int nativeType(const Cell& cell, Side side) {
    if (cell.pattern == Pattern::RequestReply) {
        return side == Side::Client ? ZMQ_REQ : ZMQ_REP;
    }
    return side == Side::Client ? ZMQ_SUB : ZMQ_PUB;
}

/// What an engineer writes with 0MQ's C interface and nothing else.
class PlainLink {
public:
    PlainLink(const Cell& cell, Side side, const std::string& address)
        : content(cell.content),
          socket(zmq_socket(context(), nativeType(cell, side))),
          size(bufferSize(cell)),
          buffer(new char[size]) {
        const int none = 0;
        check(zmq_setsockopt(socket, ZMQ_LINGER, &none, sizeof none) == 0);
        if (cell.pattern == Pattern::PublishSubscribe) {
            check(zmq_setsockopt(socket, side == Side::Client ? ZMQ_RCVHWM : ZMQ_SNDHWM, &none, sizeof none) == 0);
        }
        const std::string url = urlOf(cell, address);
        check((side == Side::Client ? zmq_connect(socket, url.c_str()) : zmq_bind(socket, url.c_str())) == 0);
        if (side == Side::Client && cell.pattern == Pattern::PublishSubscribe) {
            check(zmq_setsockopt(socket, ZMQ_SUBSCRIBE, nullptr, 0) == 0);
        }
    }
    ~PlainLink() { zmq_close(socket); }
    PlainLink(const PlainLink&) = delete;
    PlainLink& operator=(const PlainLink&) = delete;

    void send(Payload& payload) {
        if (content == Content::Raw) {
            check(zmq_send(socket, payload.raw.data(), payload.raw.size(), 0) >= 0);
            return;
        }
        check(payload.message.IsInitialized());
        const std::size_t length = payload.message.ByteSizeLong();
        char* const block = static_cast<char*>(std::malloc(length));
        check(payload.message.SerializeToArray(block, static_cast<int>(length)));
        check(zmq_send(socket, block, length, 0) >= 0);
        std::free(block);
    }

    std::size_t receive() {
        const int length = zmq_recv(socket, buffer.get(), size, 0);
        check(length >= 0);
        if (content == Content::Raw) {
            return static_cast<std::size_t>(length);
        }
        check(received.ParseFromArray(buffer.get(), length));
        return received.payload().size();
    }

private:
    const Content content;
    void* const socket;
    const std::size_t size;
    const std::unique_ptr<char[]> buffer;
    Reading received;
};

std::string zmqVersion() {
    int major = 0;
    int minor = 0;
    int patch = 0;
    zmq_version(&major, &minor, &patch);
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

} // namespace

std::unique_ptr<Peer> makePlainZmq() {
    return std::make_unique<LinkPeer<PlainLink>>("plain 0MQ", zmqVersion());
}

} // namespace rk::benchmarks
