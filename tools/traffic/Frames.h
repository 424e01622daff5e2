#pragma once

#include <zmq.h>

#include <memory>
#include <string_view>
#include <vector>

namespace rk::tools {

/// A received message with all its parts. The object is reused for the next message.
class Frames {
public:
    Frames() = default;
    ~Frames();
    Frames(const Frames&) = delete;
    Frames& operator=(const Frames&) = delete;

    /// Receives a message, by default without waiting. Returns false, with `errno` set, if there is none.
    bool receiveFrom(void* socket, int flags = ZMQ_DONTWAIT);

    /// At least one, valid until the next message is received.
    const std::vector<std::string_view>& parts() const { return views; }

    /// The length of all parts, in bytes.
    std::size_t size() const { return total; }

private:
    std::vector<std::unique_ptr<zmq_msg_t>> messages; // a message must not move
    std::vector<std::string_view> views;
    std::size_t total = 0;
};

} // namespace rk::tools
