#pragma once

#include <rk/socket/Security.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/TrustedKeys.h>

#include <optional>
#include <string>

namespace rk::tools {

/// The files that encrypt TCP endpoints. Both are given, or none.
struct KeyFiles {
    std::optional<std::string> own;
    std::optional<std::string> trusted;
};

/// A key pair, and the keys of the peers that are trusted.
class Keys {
public:
    /// Reads the files as the library does. Throws std::runtime_error with the reason.
    explicit Keys(const KeyFiles& files);

    /// Encrypts the next connection that `socket` makes, which is to `endpoint`. Throws std::runtime_error if there is no
    /// key for the endpoint.
    void encryptConnection(void* socket, const rk::socket::SocketEndpoint& endpoint) const;

    /// Encrypts what `socket` binds next. Only a Gatekeeper can admit clients to it.
    void encryptListener(void* socket) const;

    bool admits(const std::string& client) const { return trustedKeys.admits(client); }
    const std::string& publicKey() const { return pair.publicKey; }
    const std::string& trustFile() const { return file; }

private:
    std::string file;
    rk::socket::Security::KeyPair pair;
    rk::socket::detail::TrustedKeys trustedKeys;
};

} // namespace rk::tools
