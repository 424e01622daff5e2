#pragma once

#include <rk/socket/Protocol.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/NetworkSettings.h>

#include <string>

namespace rk::socket::detail {

/// Sets the options that hold for one endpoint, on a native socket that is bound or connected to it next.
///
/// ZeroMQ copies the options of a socket into each endpoint that it binds or connects, and keeps them there when it
/// reconnects. Whatever differs from endpoint to endpoint is set here.
class EndpointOptions {
public:
    /// `header` names the socket in error texts.
    EndpointOptions(void* socket, const std::string& header);

    /// Sets the options for a socket of this pattern at `endpoint`. Makes no call for settings that are absent.
    /// \param credentials null for a plain process
    /// \throws std::runtime_error if ZeroMQ refuses an option, or no server at `endpoint` is trusted
    void set(Protocol::Protocol protocol, const SocketEndpoint& endpoint, const NetworkSettings& settings,
             const Credentials* credentials) const;

    /// Sets the options of a connection that this process makes to an endpoint that it has bound with `credentials`.
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
