#pragma once

#include <rk/socket/Security.h>
#include <rk/socket/detail/TrustedKeys.h>

#include <memory>

namespace rk::socket::detail {

/// The keys that `Security::enable` has read. Immutable: a second call makes another object.
struct Credentials {
    Security::KeyPair own;
    TrustedKeys trusted;
    Security::KeyPair wakeUp; ///< for connections of this process to itself, the same until it ends

    /// Returns the credentials of the process, or null while encryption is not enabled.
    /// \throws std::system_error if the lock fails
    static std::shared_ptr<const Credentials> ofProcess();

    /// Returns the same as `ofProcess`. If it returns null for a TCP endpoint, encryption can no longer be enabled,
    /// even if the endpoint is never connected or bound.
    /// \throws std::system_error if the lock fails
    static std::shared_ptr<const Credentials> forEndpoint(const SocketEndpoint& endpoint);
};

} // namespace rk::socket::detail
