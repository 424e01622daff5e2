#include <rk/socket/SocketContext.h>
#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/WakeUpCall.h>

#include <zmq.h>

#include <string_view>

namespace rk::socket::detail {

namespace {

// Not empty, because a client's request may be empty. Protobuf cannot parse it: "rk" starts a field that is too long.
constexpr std::string_view text = "rk::socket::detail::WakeUpCall";

} // namespace

bool WakeUpCall::isIn(const char* buffer, std::size_t size) {
    return std::string_view(buffer, size).substr(0, text.size()) == text.substr(0, size);
}

WakeUpCall::~WakeUpCall() {
    close();
}

void WakeUpCall::send(const BoundAddresses& addresses, std::mutex& mutex) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (socket == nullptr) {
        open(addresses);
    }
    zmq_send(socket, text.data(), text.size(),
             ZMQ_DONTWAIT); // fails if it succeeded before, because a reply is due first
}

void WakeUpCall::open(const BoundAddresses& addresses) {
    socket = getSocket(Protocol::Req);
    const int none = 0;
    zmq_setsockopt(socket, ZMQ_LINGER, &none, sizeof none);
    // Otherwise the request would wait for the first address, even if only the second is reachable.
    const int connectedOnly = 1;
    zmq_setsockopt(socket, ZMQ_IMMEDIATE, &connectedOnly, sizeof connectedOnly);
    try {
        if (!addresses.connect(socket)) {
            close();
        }
    } catch (...) {
        close();
        throw;
    }
}

void WakeUpCall::close() noexcept {
    if (socket != nullptr) {
        zmq_close(socket);
        socket = nullptr;
    }
}

} // namespace rk::socket::detail
