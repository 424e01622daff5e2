#pragma once

#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/NetworkSettings.h>

#include <string>

namespace rk::socket::detail {

/// Sets the options that differ between the endpoints of one socket, right before a bind or connect.
///
/// ZeroMQ copies the options of a socket into each endpoint that it binds or connects, and keeps the copy when it
/// reconnects.
class EndpointOptions {
public:
    /// `header` names the socket in messages, and must outlive the object.
    EndpointOptions(void* socket, const std::string& header);

    /// Sets the options for a socket of this pattern at `endpoint`. Makes no call for absent settings.
    /// \param credentials null without encryption
    /// \throws std::runtime_error if ZeroMQ refuses an option, or no server at `endpoint` is trusted
    void set(Protocol::Protocol protocol, const SocketEndpoint& endpoint, const NetworkSettings& settings,
             const Credentials* credentials) const;

    /// Sets the options for a connection of this process to an endpoint that it has bound with `credentials`.
    /// \throws std::runtime_error if ZeroMQ refuses an option
    void setForWakeUp(const SocketEndpoint& endpoint, const Credentials& credentials) const;

private:
    void setMaxMessageSize(const SocketEndpoint& endpoint, const NetworkSettings& settings,
                           const Credentials* credentials) const;
    void setSecurity(Protocol::Protocol protocol, const SocketEndpoint& endpoint, const Credentials& credentials) const;
    void setServer(const Security::KeyPair& own) const;
    void setClient(const std::string& serverKey, const Security::KeyPair& own) const;
    void setPlain() const;
    void setPlainDomain() const;
    void setPeerTimeout(Protocol::Protocol protocol, unsigned int seconds) const;
    void setNumber(int option, const char* name, int value) const;
    void setText(int option, const char* name, const std::string& value) const;
    void setOption(int option, const char* name, const void* value, std::size_t size) const;
    void requireNumber(int option, const char* name, int value) const;
    void requireDomain() const;
    [[noreturn]] void refuseLost(const char* name) const;

    void* socket;
    const std::string& header;
};

} // namespace rk::socket::detail
