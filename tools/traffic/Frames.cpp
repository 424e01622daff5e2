#include "traffic/Frames.h"

#include <algorithm>

namespace rk::tools {

Frames::~Frames() {
    std::for_each(messages.begin(), messages.end(), [](zmq_msg_t& message) { zmq_msg_close(&message); });
}

bool Frames::receiveFrom(void* socket) {
    views.clear();
    total = 0;
    bool more = true;
    while (more) {
        if (messages.size() == views.size()) {
            zmq_msg_init(&messages.emplace_back());
        }
        zmq_msg_t& message = messages[views.size()];
        // ZeroMQ hands a message over only when all of it is there.
        if (zmq_msg_recv(&message, socket, ZMQ_DONTWAIT) < 0) {
            return false;
        }
        views.emplace_back(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
        total += views.back().size();
        more = zmq_msg_more(&message) != 0;
    }
    return true;
}

} // namespace rk::tools
