#include <rk/socket/detail/AddressBook.h>
#include <rk/socket/detail/Attachment.h>
#include <rk/socket/detail/Authenticator.h>
#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/ContextGate.h>
#include <rk/socket/detail/EndpointOptions.h>
#include <rk/socket/detail/Failures.h>
#include <rk/socket/detail/ListenAddresses.h>
#include <rk/socket/detail/Pattern.h>

#include <zmq.h>

#include <cerrno>
#include <stdexcept>

namespace rk::socket::detail {

namespace {

constexpr const char* allInterfaces = "*";

/// Returns the string for ZeroMQ. `Undef`, because `toString` replaces the host by "*" for a pattern that binds.
std::string textOf(const SocketEndpoint& address) {
    return address.toString(Protocol::Undef);
}

[[noreturn]] void refuseToListen(const std::string& host, const std::string& reason, const std::string& header) {
    throw std::runtime_error("Socket: Cannot listen on " + host + ": " + reason + " on " + header);
}

[[noreturn]] void refuse(int error, const std::string& header) {
    throw std::runtime_error("Socket: Failed connecting/binding socket: " + std::string(zmq_strerror(error)) + " on " +
                             header);
}

} // namespace

Attachment::Attachment(Protocol::Protocol socketProtocol, const SocketEndpoint& target, const std::string& socketHeader)
    : protocol(socketProtocol),
      header(socketHeader),
      settings(NetworkSettings::ofProcess()),
      processCredentials(Credentials::forEndpoint(target)) {
    if (processCredentials && target == SocketEndpoint(Transport::Inproc, Authenticator::name, 0)) {
        throw std::runtime_error("Socket: Cannot use the name of the authenticator on " + header);
    }
    if (target.transport != Transport::Tcp || !binds(protocol)) {
        targets.push_back(target);
        return;
    }
    const std::string& host = settings.listenHost.empty() ? target.address : settings.listenHost;
    try {
        for (const std::string& address : listenAddresses(host, settings.ipv6.value_or(false))) {
            targets.emplace_back(Transport::Tcp, address, target.port);
        }
    } catch (const std::runtime_error& failure) {
        refuseToListen(host, failure.what(), header);
    }
}

std::string Attachment::text() const {
    std::string text;
    for (const SocketEndpoint& address : targets) {
        text += (text.empty() ? "" : ", ") + textOf(address);
    }
    return text;
}

void Attachment::bind(void* socket) {
    unsigned short port = targets.front().port;
    for (SocketEndpoint& address : targets) {
        address.port = port;
        bindTo(socket, address);
        address = boundEndpoint(socket, address);
        port = address.port;
    }
}

void Attachment::bindTo(void* socket, const SocketEndpoint& address) const {
    EndpointOptions(socket, header).set(protocol, address, settings, processCredentials.get());
    if (processCredentials && address.transport == Transport::Tcp) {
        startAuthenticator();
    }
    const int error = AddressBook::ofProcess().bind(socket, textOf(address));
    if (error == EADDRNOTAVAIL && settings.listenHost != allInterfaces) {
        refuseToListen(address.address, "the machine has no such address", header);
    }
    if (error != 0) {
        refuse(error, header);
    }
}

void Attachment::startAuthenticator() const {
    const int error = Authenticator::ofProcess().start();
    if (error != 0) {
        throw std::runtime_error("Socket: Cannot authenticate clients: " + failureText(error, header));
    }
}

void Attachment::connect(void* socket) const {
    EndpointOptions(socket, header).set(protocol, targets.front(), settings, processCredentials.get());
    const int error = ContextGate::ofProcess().connect(socket, textOf(targets.front()));
    if (error != 0) {
        refuse(error, header);
    }
}

} // namespace rk::socket::detail
