#pragma once

#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/NetworkSettings.h>

#include <memory>
#include <string>
#include <vector>

namespace rk::socket::detail {

/// Binds or connects a native socket to one endpoint.
///
/// Copies the settings of the process once, so that all addresses of the endpoint get the same options.
class Attachment {
public:
    /// Resolves the addresses. `header` names the socket in messages, and must outlive the object.
    /// \throws std::runtime_error if a socket that binds has no address to listen on, or the target is the name of the
    ///         authenticator
    /// \throws std::system_error if a lock fails
    Attachment(Protocol::Protocol protocol, const SocketEndpoint& target, const std::string& header);

    const std::vector<SocketEndpoint>& addresses() const { return targets; }

    /// Returns the credentials that the process had on construction, or null without encryption.
    const std::shared_ptr<const Credentials>& credentials() const { return processCredentials; }

    /// Returns the addresses for a log line.
    std::string text() const;

    /// Binds native `socket` to each address. If the system chooses a port, all addresses get the same one.
    /// \throws std::runtime_error if ZeroMQ refuses an option or an address
    /// \throws std::system_error if a lock fails
    void bind(void* socket);

    /// Connects native `socket`. Throws what `bind` throws.
    void connect(void* socket) const;

private:
    void bindTo(void* socket, const SocketEndpoint& address) const;
    void startAuthenticator() const;

    Protocol::Protocol protocol;
    const std::string& header;
    NetworkSettings settings;
    std::shared_ptr<const Credentials> processCredentials;
    std::vector<SocketEndpoint> targets;
};

} // namespace rk::socket::detail
