#pragma once

#include <rk/socket/ClosePolicy.h>
#include <rk/socket/SocketEndpoint.h>

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

inline std::string attach(socket::Protocol::Protocol pattern) {
    return binds(pattern) ? "zmq_bind" : "zmq_connect";
}

inline int linger(socket::Protocol::Protocol pattern, socket::ClosePolicy::ClosePolicy policy) {
    if (pattern == socket::Protocol::Sub || policy == socket::ClosePolicy::DropPending) {
        return 0;
    }
    return policy == socket::ClosePolicy::LingerTwoSeconds ? 2000 : -1;
}

/// Returns the calls and log lines of one `connect`.
inline Lines connect(const std::string& name, socket::Protocol::Protocol pattern,
                     socket::ClosePolicy::ClosePolicy policy, const socket::SocketEndpoint& endpoint,
                     unsigned int receiveTimeout) {
    const char* const phrases[] = {"", "sending to ", "subscribing to ", "listening on ", "sending to "};
    const std::string address = endpoint.toString(pattern);
    Lines lines{"debug: Connecting [Socket " + name + "], " + phrases[pattern] + address};
    const std::string lingerCall = set(ZMQ_LINGER, linger(pattern, policy));
    if (binds(pattern)) {
        lines.push_back(lingerCall);
    }
    lines.push_back(attach(pattern) + " " + address);
    if (binds(pattern) && endpoint.transport == socket::Transport::Ipc) {
        lines.push_back("chmod " + endpoint.address + " 777");
    }
    if (receiveTimeout != 0) {
        lines.push_back(set(ZMQ_RCVTIMEO, static_cast<int>(receiveTimeout)));
    }
    if (pattern == socket::Protocol::Sub) {
        lines.push_back(subscribe());
    }
    lines.push_back(lingerCall);
    lines.push_back("debug: Connected [Socket " + name + "]");
    return lines;
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
