#include "KeyFiles.h"
#include "Link.h"

#include <rk/socket/Security.h>

#include <zmq.h>

#include <cstdlib>

namespace rk::benchmarks {

namespace {

void check(bool good) {
    require(good, "0MQ");
}

/// Code as an engineer would write it with ZeroMQ's C interface.
class PlainLink {
public:
    explicit PlainLink(const End& end)
        : raw(end.cell.raw()),
          socket(zmq_socket(context(), end.choose(ZMQ_REQ, ZMQ_REP, ZMQ_SUB, ZMQ_PUB))),
          size(bufferSize(end.cell)),
          buffer(new char[size]) {
        const int none = 0;
        check(zmq_setsockopt(socket, ZMQ_LINGER, &none, sizeof none) == 0);
        if (!end.cell.requests()) {
            check(zmq_setsockopt(socket, end.isClient ? ZMQ_RCVHWM : ZMQ_SNDHWM, &none, sizeof none) == 0);
        }
        if (end.cell.encrypted()) {
            encrypt(end.isClient);
        }
        check((end.isClient ? zmq_connect(socket, end.url.c_str()) : zmq_bind(socket, end.url.c_str())) == 0);
        if (end.choose(false, false, true, false)) {
            check(zmq_setsockopt(socket, ZMQ_SUBSCRIBE, nullptr, 0) == 0);
        }
    }
    ~PlainLink() { zmq_close(socket); }
    PlainLink(const PlainLink&) = delete;
    PlainLink& operator=(const PlainLink&) = delete;

    void send(Payload& payload) {
        if (raw) {
            check(zmq_send(socket, payload.raw.data(), payload.raw.size(), 0) >= 0);
            return;
        }
        check(payload.message.IsInitialized());
        const std::size_t length = payload.message.ByteSizeLong();
        char* const block = static_cast<char*>(std::malloc(length));
        serialise(payload.message, block, length);
        check(zmq_send(socket, block, length, 0) >= 0);
        std::free(block);
    }

    std::size_t receive() {
        const int length = zmq_recv(socket, buffer.get(), size, 0);
        check(length >= 0);
        const auto received = static_cast<std::size_t>(length);
        return raw ? received : parse(message, buffer.get(), received);
    }

private:
    void encrypt(bool isClient) {
        const auto keys = rk::socket::Security::readKeyFile(keyFile);
        const auto set = [this](int option, const std::string& value) {
            check(zmq_setsockopt(socket, option, value.data(), value.size()) == 0);
        };
        set(ZMQ_CURVE_PUBLICKEY, keys.publicKey);
        set(ZMQ_CURVE_SECRETKEY, keys.secretKey);
        if (isClient) {
            set(ZMQ_CURVE_SERVERKEY, keys.publicKey);
        } else {
            const int server = 1;
            check(zmq_setsockopt(socket, ZMQ_CURVE_SERVER, &server, sizeof server) == 0);
        }
    }

    static void* context() {
        static void* const instance = zmq_ctx_new();
        return instance;
    }

    const bool raw;
    void* const socket;
    const std::size_t size;
    const std::unique_ptr<char[]> buffer;
    Reading message;
};

std::string version() {
    int major = 0;
    int minor = 0;
    int patch = 0;
    zmq_version(&major, &minor, &patch);
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

const bool added = addLinkPeer<PlainLink>("plain 0MQ", version(), {"inproc", "ipc", "tcp", "encrypted"});

} // namespace

} // namespace rk::benchmarks
