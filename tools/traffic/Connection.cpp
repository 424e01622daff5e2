#include "traffic/Connection.h"

#include "traffic/Context.h"
#include "traffic/Frames.h"

#include <zmq.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace rk::tools {

namespace {

// ZeroMQ reconnects after a tenth of a second.
constexpr std::chrono::milliseconds retryPatience{500};

constexpr int failures =
    ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;
constexpr int attempts = ZMQ_EVENT_CONNECTED | ZMQ_EVENT_CONNECT_DELAYED | ZMQ_EVENT_CONNECT_RETRIED;

} // namespace

Connection::Connection(const Context& context, void* socket) : events(zmq_socket(context.native(), ZMQ_PAIR)) {
    static std::atomic<unsigned int> number{0};
    const std::string name = "inproc://connection-" + std::to_string(number++);
    const int none = 0;
    // Without limits, because a full queue would block ZeroMQ's thread.
    zmq_setsockopt(events, ZMQ_RCVHWM, &none, sizeof none);
    zmq_setsockopt(events, ZMQ_LINGER, &none, sizeof none);
    zmq_socket_monitor(socket, name.c_str(),
                       attempts | failures | ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_SUCCEEDED);
    zmq_connect(events, name.c_str());
}

Connection::~Connection() {
    zmq_close(events);
}

void Connection::update() {
    for (Frames message; message.receiveFrom(events);) {
        std::uint16_t event = 0;
        std::memcpy(&event, message.parts()[0].data(), sizeof event);
        made = made || event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
        if ((event & (failures | ZMQ_EVENT_DISCONNECTED)) != 0) {
            lost = Clock::now();
        } else if ((event & attempts) != 0) {
            lost.reset();
        }
    }
}

bool Connection::isGivenUp(Clock::time_point now) const {
    return lost && now - *lost > retryPatience;
}

} // namespace rk::tools
