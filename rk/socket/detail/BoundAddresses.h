#pragma once

#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/FileDescriptor.h>

#include <list>
#include <memory>

namespace rk::socket::detail {

/// Returns the endpoint that native `socket` has after it was bound to `target`. The system's choice replaces TCP port
/// 0 and the IPC path "*". Returns `target` if ZeroMQ does not report the choice.
SocketEndpoint boundEndpoint(void* socket, const SocketEndpoint& target);

/// The addresses through which this process can connect to a socket that it has bound.
///
/// Another process may remove or replace the file of an IPC address. The socket still accepts connections through the
/// original file, so this class keeps a descriptor of it.
class BoundAddresses {
public:
    BoundAddresses() = default;

    /// Adds an address of the socket, and the credentials of the time when it was bound.
    void add(const SocketEndpoint& endpoint, const std::shared_ptr<const Credentials>& credentials);

    void clear() noexcept;

    /// Connects native `socket` to every address. Returns false if ZeroMQ rejects them all.
    /// \throws std::runtime_error if ZeroMQ refuses an option
    /// \throws std::system_error if a lock fails
    bool connect(void* socket) const;

private:
    struct Address {
        Address(const SocketEndpoint& bound, const std::shared_ptr<const Credentials>& boundWith);

        /// Returns the endpoint for a connection of this process.
        SocketEndpoint reachable() const;

        SocketEndpoint endpoint;
        std::shared_ptr<const Credentials> credentials;
        FileDescriptor file; ///< refers to the file of an IPC address, unless the system has no descriptor left
    };

    std::list<Address> addresses;
};

} // namespace rk::socket::detail
