#pragma once

#include <memory>
#include <mutex>
#include <sys/types.h>
#include <thread>

namespace rk::socket::detail {

class RefusalLog;

/// Tells ZeroMQ which clients may connect to the encrypted endpoints of this process.
///
/// ZeroMQ asks for each client that has completed the cryptographic part of its handshake. A thread answers the requests
/// one after the other, from the trusted keys that hold at that moment. While it does not run, ZeroMQ admits no client.
class Authenticator {
public:
    /// The domain in ZeroMQ's requests. Sockets need one, or they would admit every client while there is no thread.
    static constexpr const char* domain = "rk-socket";

    /// The domain of a socket's plain endpoints. ZeroMQ asks for their clients too, since a domain cannot be removed from a
    /// socket that has an encrypted endpoint.
    static constexpr const char* plainDomain = "rk-socket-plain";

    /// The name on inproc at which ZeroMQ asks.
    static constexpr const char* name = "zeromq.zap.01";

    /// Returns the authenticator of the process. It is never destroyed: a child process has the object, but no thread.
    static Authenticator& ofProcess();

    /// Starts the thread, unless it was started before. Returns 0 or ZeroMQ's error number.
    /// \throws std::system_error if a lock fails, or the system has no thread
    int start();

    /// Waits for the thread, which ends when the context is terminated.
    void join() noexcept;

private:
    std::mutex mutex;
    std::thread thread;
    pid_t process = 0; ///< in which the thread runs
};

} // namespace rk::socket::detail
