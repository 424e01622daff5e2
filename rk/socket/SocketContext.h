#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/Protocol.h>
#include <rk/utils/MessageFormatter.h>

#include <mutex>

namespace rk::socket {

/// Owns a ZeroMQ context and creates native sockets in it.
///
/// `getSocket` uses the one context of the process. Applications do not need another. Its destructor runs at process
/// exit and waits until every socket of the context is closed. Do not make a `Socket` a static object: if it is still
/// open then, the process does not end.
class RK_SOCKET_EXPORT SocketContext : public rk::utils::MessageFormatter {
public:
    /// Creates the ZeroMQ context. Does not report a failure of ZeroMQ: every later `createSocket` then returns null.
    /// \throws std::system_error if a lock fails
    SocketContext();

    /// Terminates the ZeroMQ context. Logs four debug lines. Ignores failures of ZeroMQ.
    ///
    /// Blocks until every socket of the context is closed and its linger time is over. Calls on these sockets in other
    /// threads fail with `ETERM`. Takes no lock.
    ~SocketContext();

    SocketContext(const SocketContext&) = delete;
    SocketContext& operator=(const SocketContext&) = delete;

    /// Returns a new native socket of the pattern, or null with the reason in `zmq_errno`. The caller closes it with
    /// `zmq_close`. Any thread may call it. It blocks only for other callers.
    /// \throws std::system_error if the lock fails
    void* createSocket(Protocol::Protocol protocol);

private:
    std::mutex contextMutex;
    void* context;
};

/// Returns a new native socket in the context of the process, or null with the reason in `zmq_errno`. The first call
/// creates the context, and process exit terminates it. The caller closes the socket with `zmq_close`.
///
/// Any thread may call it. It blocks only for other callers. After a failure, `zmq_errno` is one of:
/// - `EINVAL`: the pattern is unknown
/// - `EMFILE`: the process has no ZeroMQ sockets or file descriptors left
/// - `ETERM`: process exit has begun
/// - `EFAULT`: ZeroMQ could not start, which is permanent
///
/// \throws std::system_error if a lock fails
RK_SOCKET_EXPORT void* getSocket(Protocol::Protocol protocol);

} // namespace rk::socket
