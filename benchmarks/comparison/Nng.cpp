#include "LinkPeer.h"
#include "ZmqAddress.h"

#include <memory>
#include <nng/nng.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <stdexcept>
#include <vector>

namespace rk::benchmarks {

namespace {

constexpr int longestQueue = 8192;

void check(int error) {
    if (error != 0) {
        throw std::runtime_error(std::string("nng: ") + nng_strerror(static_cast<nng_errno_enum>(error)));
    }
}

int openSocket(const Cell& cell, Side side, nng_socket* socket) {
    if (cell.pattern == Pattern::RequestReply) {
        return side == Side::Client ? nng_req0_open(socket) : nng_rep0_open(socket);
    }
    return side == Side::Client ? nng_sub0_open(socket) : nng_pub0_open(socket);
}

class NngLink {
public:
    NngLink(const Cell& cell, Side side, const std::string& address) : content(cell.content), buffer(bufferSize(cell)) {
        check(openSocket(cell, side, &socket));
        check(nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0));
        if (cell.pattern == Pattern::PublishSubscribe) {
            check(nng_socket_set_int(socket, side == Side::Client ? NNG_OPT_RECVBUF : NNG_OPT_SENDBUF, longestQueue));
        }
        const std::string url = urlOf(cell, address);
        if (side == Side::Server) {
            check(nng_listen(socket, url.c_str(), nullptr, 0));
            return;
        }
        check(nng_dial(socket, url.c_str(), nullptr, NNG_FLAG_NONBLOCK));
        if (cell.pattern == Pattern::PublishSubscribe) {
            check(nng_socket_set(socket, NNG_OPT_SUB_SUBSCRIBE, "", 0));
        }
    }
    ~NngLink() { nng_close(socket); }
    NngLink(const NngLink&) = delete;
    NngLink& operator=(const NngLink&) = delete;

    void send(Payload& payload) {
        if (content == Content::Raw) {
            check(nng_send(socket, payload.raw.data(), payload.raw.size(), 0));
            return;
        }
        const std::size_t length = payload.message.ByteSizeLong();
        void* const block = nng_alloc(length);
        payload.message.SerializeToArray(block, static_cast<int>(length));
        check(nng_send(socket, block, length, NNG_FLAG_ALLOC));
    }

    std::size_t receive() {
        std::size_t size = buffer.size();
        check(nng_recv(socket, buffer.data(), &size, 0));
        if (content == Content::Raw) {
            return size;
        }
        if (!received.ParseFromArray(buffer.data(), static_cast<int>(size))) {
            throw std::runtime_error("not parsed");
        }
        return received.payload().size();
    }

private:
    const Content content;
    nng_socket socket{};
    std::vector<char> buffer;
    Reading received;
};

} // namespace

std::unique_ptr<Peer> makeNng() {
    return std::make_unique<LinkPeer<NngLink>>("nng", nng_version());
}

} // namespace rk::benchmarks
