#include "traffic/Frames.h"

#include <algorithm>
#include <climits>

namespace rk::tools {

Frames::~Frames() {
    std::for_each(messages.begin(), messages.end(), [](const auto& message) { zmq_msg_close(message.get()); });
}

bool Frames::receiveFrom(void* socket, int flags) {
    views.clear();
    total = 0;
    bool more = true;
    while (more) {
        if (messages.size() == views.size()) {
            zmq_msg_init(messages.emplace_back(std::make_unique<zmq_msg_t>()).get());
        }
        zmq_msg_t* const message = messages[views.size()].get();
        // ZeroMQ delivers a message only as a whole.
        const int size = zmq_msg_recv(message, socket, flags);
        if (size < 0) {
            return false;
        }
        views.emplace_back(static_cast<const char*>(zmq_msg_data(message)),
                           size < INT_MAX ? static_cast<std::size_t>(size) : zmq_msg_size(message));
        total += views.back().size();
        more = zmq_msg_more(message) != 0;
    }
    return true;
}

} // namespace rk::tools
