#include "KeyFiles.h"
#include "Link.h"

#include <nng/nng.h>
#include <nng/protocol/pubsub0/pub.h>
#include <nng/protocol/pubsub0/sub.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>
#include <nng/supplemental/tls/tls.h>
#include <string>
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
        const std::string url = end.cell.encrypted() ? "tls+" + end.url : end.url;
        if (!end.isClient) {
            nng_listener listener{};
            check(nng_listener_create(&listener, socket, url.c_str()));
            if (end.cell.encrypted()) {
                check(nng_listener_set_ptr(listener, NNG_OPT_TLS_CONFIG, tls(NNG_TLS_MODE_SERVER)));
            }
            check(nng_listener_start(listener, 0));
            return;
        }
        nng_dialer dialer{};
        check(nng_dialer_create(&dialer, socket, url.c_str()));
        if (end.cell.encrypted()) {
            check(nng_dialer_set_ptr(dialer, NNG_OPT_TLS_CONFIG, tls(NNG_TLS_MODE_CLIENT)));
        }
        check(nng_dialer_start(dialer, NNG_FLAG_NONBLOCK));
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
    /// Lives as long as the process.
    static nng_tls_config* tls(nng_tls_mode mode) {
        const std::string certificate = contentOf(certificateFile);
        nng_tls_config* config = nullptr;
        check(nng_tls_config_alloc(&config, mode));
        if (mode == NNG_TLS_MODE_SERVER) {
            check(nng_tls_config_own_cert(config, certificate.c_str(), contentOf(certificateKeyFile).c_str(), nullptr));
        } else {
            check(nng_tls_config_ca_chain(config, certificate.c_str(), nullptr));
            check(nng_tls_config_server_name(config, certificateName));
        }
        return config;
    }

    const bool raw;
    nng_socket socket{};
    std::vector<char> buffer;
    Reading message;
};

const bool added = addLinkPeer<NngLink>("nng", nng_version(), {"inproc", "ipc", "tcp", "encrypted"});

} // namespace

} // namespace rk::benchmarks
