#pragma once

#include <rk/socket/Protocol.h>

#include <zmq.h>

#include <algorithm>
#include <string>
#include <vector>

/// Builds the journal's lines for the calls of a socket.
namespace rk::tests::calls {

using Lines = std::vector<std::string>;

inline std::string set(int option, int value) {
    return "zmq_setsockopt " + std::to_string(option) + " = " + std::to_string(value) + " (4 bytes)";
}

inline std::string subscribe() {
    return "zmq_setsockopt " + std::to_string(ZMQ_SUBSCRIBE) + " = none (0 bytes)";
}

inline std::string open(socket::Protocol::Protocol pattern) {
    return "zmq_socket " + std::to_string(socket::Protocol::ToNativeProtocol(pattern));
}

inline std::string repairWarning(const std::string& name) {
    return "warning: [Socket " + name + "] Attempting reset of the connections to preserve 0MQ state machine integrity";
}

inline bool binds(socket::Protocol::Protocol pattern) {
    return pattern == socket::Protocol::Pub || pattern == socket::Protocol::Rep;
}

/// Removes the retries of a bind at an address that ZeroMQ is still releasing.
inline Lines once(Lines lines) {
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
}

inline Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

} // namespace rk::tests::calls
