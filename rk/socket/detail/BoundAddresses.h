#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <list>
#include <string>

namespace rk::socket::detail {

/// Returns where native `socket` was bound last, or `endpoint` if ZeroMQ does not tell.
SocketEndpoint lastEndpointOf(void* socket, const SocketEndpoint& endpoint);

/// The addresses at which this process reaches a socket that it has bound.
///
/// An ipc address outlives its file: another process may remove or replace the file, and the socket still accepts
/// connections through the descriptor that this class keeps of it.
class BoundAddresses {
public:
    BoundAddresses() = default;

    /// Adds the address to which native `socket` has just been bound.
    void add(void* socket, const SocketEndpoint& endpoint);

    void clear() noexcept;

    /// Connects native `socket` to every address. Returns false if ZeroMQ refuses them all.
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
        explicit Address(const SocketEndpoint& bound);

        SocketEndpoint endpoint;
        FileReference file;
    };

    std::list<Address> addresses;
};

} // namespace rk::socket::detail
