#pragma once

#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/NetworkSettings.h>

#include <optional>
#include <string>

namespace rk::tools {

/// The files that encrypt TCP endpoints. The user gives both or none.
struct KeyFiles {
    std::optional<std::string> own;
    std::optional<std::string> trusted;
};

/// A key pair, and the keys of the trusted peers.
struct Keys : rk::socket::detail::Credentials {
    /// Reads the files as the library does. Throws std::runtime_error with the reason.
    explicit Keys(const KeyFiles& files);

    std::string trustFile;
};

/// Sets the options of the endpoint that `socket` binds or connects to next, as the library does. `keys` is null for a
/// plain endpoint. Only a Gatekeeper admits clients to an encrypted one. Throws std::runtime_error with the reason.
void setOptions(void* socket, bool binds, const rk::socket::SocketEndpoint& endpoint,
                const rk::socket::detail::NetworkSettings& network, const Keys* keys);

} // namespace rk::tools
