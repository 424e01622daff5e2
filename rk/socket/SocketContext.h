#pragma once
#pragma GCC system_header // users are not warned that the destructor is not virtual

#include <rk/Export.h>
#include <rk/socket/Protocol.h>
#include <rk/utils/MessageFormatter.h>

#include <mutex>

namespace rk::socket {

/// Owns a 0MQ context and hands out native sockets of it.
///
/// The process has one, behind `getSocket`; applications have no reason to make another. Its destructor runs at process
/// exit and waits until every socket of the context is closed, so a `Socket` must not be a static object: one that is
/// still open then keeps the process from ending.
class RK_SOCKET_EXPORT SocketContext : public rk::utils::MessageFormatter {
public:
    /// Creates the 0MQ context. A failure is not reported here: every later `createSocket` returns null.
    SocketContext();

    /// Terminates the 0MQ context and logs each step at debug level: "Terminating 0MQ context", "Terminating 0MQ
    /// context Done", "Destroying 0MQ context", "Destroying 0MQ context Done". Blocks until every socket of the context
    /// is closed and its linger time is over; meanwhile blocking calls on these sockets in other threads fail with
    /// `ETERM`. Takes no lock. Failures of 0MQ are ignored.
    ~SocketContext();

    SocketContext(const SocketContext&) = delete;
    SocketContext& operator=(const SocketContext&) = delete;

    /// A new native socket of the pattern, or null, with the reason left in `zmq_errno`. The caller closes it with
    /// `zmq_close`. Any number of threads may call it at once; it does not block beyond the other callers.
    /// \throws std::system_error when the mutex cannot be locked
    void* createSocket(Protocol::Protocol protocol);

private:
    std::mutex contextMutex;
    void* context;
};

/// A new native socket from the one context of the process, which the first call creates and the process's exit
/// terminates; or null, with the reason left in `zmq_errno`: `EINVAL` for a value that is no pattern, `EMFILE` when
/// 0MQ's sockets or the process's file descriptors are used up (the first socket takes six, each other one), `ETERM`
/// once the exit has begun, `EFAULT`, for good, if 0MQ could not be started. The caller closes it with `zmq_close`. Any
/// number of threads may call it at once; it does not block beyond the other callers.
/// \throws std::system_error when a mutex cannot be locked
RK_SOCKET_EXPORT void* getSocket(Protocol::Protocol protocol);

} // namespace rk::socket
