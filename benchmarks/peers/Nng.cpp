#include "Link.h"

#include <nng/nng.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <vector>

namespace rk::benchmarks {

namespace {

constexpr int longestQueue = 8192;

void check(int error) {
    require(error == 0, "nng");
}

class NngLink {
public:
    explicit NngLink(const End& end) : raw(end.cell.raw()), buffer(bufferSize(end.cell)) {
        check(end.choose(nng_req0_open, nng_rep0_open, nng_sub0_open, nng_pub0_open)(&socket));
        check(nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0));
        if (!end.cell.requests()) {
            check(nng_socket_set_int(socket, end.isClient ? NNG_OPT_RECVBUF : NNG_OPT_SENDBUF, longestQueue));
        }
        if (!end.isClient) {
            check(nng_listen(socket, end.url.c_str(), nullptr, 0));
            return;
        }
        check(nng_dial(socket, end.url.c_str(), nullptr, NNG_FLAG_NONBLOCK));
        if (!end.cell.requests()) {
            check(nng_socket_set(socket, NNG_OPT_SUB_SUBSCRIBE, "", 0));
        }
    }
    ~NngLink() { nng_close(socket); }
    NngLink(const NngLink&) = delete;
    NngLink& operator=(const NngLink&) = delete;

    void send(Payload& payload) {
        if (raw) {
            check(nng_send(socket, payload.raw.data(), payload.raw.size(), 0));
            return;
        }
        const std::size_t length = payload.message.ByteSizeLong();
        void* const block = nng_alloc(length);
        serialise(payload.message, block, length);
        check(nng_send(socket, block, length, NNG_FLAG_ALLOC));
    }

    std::size_t receive() {
        std::size_t size = buffer.size();
        check(nng_recv(socket, buffer.data(), &size, 0));
        return raw ? size : parse(message, buffer.data(), size);
    }

private:
    const bool raw;
    nng_socket socket{};
    std::vector<char> buffer;
    Reading message;
};

const bool added = addLinkPeer<NngLink>("nng", nng_version());

} // namespace

} // namespace rk::benchmarks
