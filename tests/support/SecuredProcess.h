#pragma once

#include "support/KeyFiles.h"

#include <rk/socket/Security.h>

#include <string>

namespace rk::tests {

/// Encrypts the connections of this process with new keys. At first, the process trusts only itself.
class SecuredProcess {
public:
    SecuredProcess() { trust(itself()); }

    /// Enables encryption with these lines in the trusted-keys file.
    void trust(const std::string& lines) const { enable(own, lines); }

    /// Enables encryption with other keys and these lines in the trusted-keys file.
    void enable(const socket::Security::KeyPair& keys, const std::string& lines) const {
        socket::Security::enable(files.write("keys", keys), files.write("trusted", lines));
    }

    std::string itself() const { return asClient(own) + asServer(own); }

    static std::string asClient(const socket::Security::KeyPair& keys) { return keys.publicKey + " client\n"; }
    static std::string asServer(const socket::Security::KeyPair& keys) {
        return keys.publicKey + " tcp://127.0.0.1:*\n";
    }

    const KeyFiles files;
    const socket::Security::KeyPair own = socket::Security::generateKeyPair();
};

} // namespace rk::tests
