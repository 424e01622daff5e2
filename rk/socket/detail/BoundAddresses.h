#pragma once

#include <rk/socket/SocketEndpoint.h>
#include <rk/socket/detail/Credentials.h>

#include <list>
#include <memory>
#include <string>

namespace rk::socket::detail {

/// Returns where native `socket`, just bound to `target`, is bound: `target` with the system's choice in place of TCP
/// port 0 or the IPC path "*". Returns `target` itself if ZeroMQ does not tell.
SocketEndpoint boundEndpoint(void* socket, const SocketEndpoint& target);

/// The addresses at which this process reaches a socket that it has bound.
///
/// An ipc address outlives its file: another process may remove or replace the file, and the socket still accepts
/// connections through the descriptor that this class keeps of it.
class BoundAddresses {
public:
    BoundAddresses() = default;

    /// Adds an address to which the socket is bound, with the credentials that it was bound with.
    void add(const SocketEndpoint& endpoint, const std::shared_ptr<const Credentials>& credentials);

    void clear() noexcept;

    /// Connects native `socket` to every address. Returns false if ZeroMQ refuses them all.
    /// \throws std::runtime_error if ZeroMQ refuses an option
    bool connect(void* socket) const;

private:
    /// Refers to a file without opening it, or to nothing where the system has no such descriptors left.
    class FileReference {
    public:
        FileReference() = default;
        explicit FileReference(const std::string& path);
        ~FileReference();
        FileReference(const FileReference&) = delete;
        FileReference& operator=(const FileReference&) = delete;

        /// A path that leads to the file wherever it is now, or `path`.
        std::string pathOr(const std::string& path) const;

    private:
        int descriptor = -1;
    };

    struct Address {
        Address(const SocketEndpoint& bound, const std::shared_ptr<const Credentials>& boundWith);

        SocketEndpoint endpoint;
        std::shared_ptr<const Credentials> credentials;
        FileReference file;
    };

    std::list<Address> addresses;
};

} // namespace rk::socket::detail
