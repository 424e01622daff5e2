#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rk::socket::detail {

/// The settings of `Network`. An absent setting causes no call to ZeroMQ.
struct NetworkSettings {
    std::string listenHost = "*"; ///< empty for the host of each endpoint
    std::optional<unsigned int> peerTimeout;
    unsigned int silenceLimit = 0;
    std::optional<std::int64_t> maxMessageSize;
    std::optional<int> queueSize;
    std::optional<bool> ipv6;

    /// Returns a copy of the settings of the process.
    /// \throws std::system_error if the lock fails
    static NetworkSettings ofProcess();

    /// Returns the limit of sockets for a new context, if one is set. It cannot change afterwards.
    /// \throws std::system_error if the lock fails
    static std::optional<int> takeMaxSockets();
};

} // namespace rk::socket::detail
