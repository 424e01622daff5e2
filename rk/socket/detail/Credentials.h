#pragma once

#include <rk/socket/Security.h>
#include <rk/socket/detail/TrustedKeys.h>

#include <memory>

namespace rk::socket::detail {

/// What `Security::enable` has read. Never changes: a second call makes another object.
struct Credentials {
    Security::KeyPair own;
    TrustedKeys trusted;
    Security::KeyPair wakeUp; ///< of the connections that this process makes to itself, lives as long as the process

    /// Returns the credentials of the process, or null while its endpoints are plain.
    /// \throws std::system_error if the lock fails
    static std::shared_ptr<const Credentials> ofProcess();

    /// Returns what `ofProcess` returns, to connect `endpoint`. If a TCP endpoint gets null, it is plain, and encryption
    /// cannot be enabled any more.
    /// \throws std::system_error if the lock fails
    static std::shared_ptr<const Credentials> forEndpoint(const SocketEndpoint& endpoint);
};

} // namespace rk::socket::detail
