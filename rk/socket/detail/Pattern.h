#pragma once

#include <rk/socket/Protocol.h>

namespace rk::socket::detail {

/// Returns whether sockets of this pattern bind their endpoints.
inline bool binds(Protocol::Protocol protocol) {
    return protocol == Protocol::Pub || protocol == Protocol::Rep;
}

/// Returns whether sockets of this pattern connect to their endpoints.
inline bool connects(Protocol::Protocol protocol) {
    return protocol == Protocol::Sub || protocol == Protocol::Req;
}

} // namespace rk::socket::detail
