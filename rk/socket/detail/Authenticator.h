#pragma once

#include <memory>
#include <mutex>
#include <sys/types.h>
#include <thread>

namespace rk::socket::detail {

class RefusalLog;

/// Tells ZeroMQ which clients may connect to the encrypted endpoints of this process.
///
/// ZeroMQ sends a request for each client that has completed the cryptographic part of its handshake. A thread replies
/// to the requests one after the other, according to the current trusted keys. While it does not run, ZeroMQ admits no
/// client.
class Authenticator {
public:
    /// The domain in ZeroMQ's requests. A socket without a domain would admit every client while the thread does not
    /// run.
    static constexpr const char* domain = "rk-socket";

    /// The domain of a socket's plain endpoints. ZeroMQ sends requests for their clients too, because a domain cannot
    /// be removed from a socket that has an encrypted endpoint.
    static constexpr const char* plainDomain = "rk-socket-plain";

    /// The inproc name to which ZeroMQ sends its requests.
    static constexpr const char* name = "zeromq.zap.01";

    /// Returns the authenticator of the process. It is never destroyed, because a child process has the object without
    /// the thread.
    static Authenticator& ofProcess();

    /// Starts the thread, unless it has been started before. Returns 0 or ZeroMQ's error number.
    /// \throws std::system_error if a lock fails, or the system cannot start a thread
    int start();

    /// Waits for the thread, which ends when the context is terminated.
    void join() noexcept;

private:
    std::mutex mutex;
    std::thread thread;
    pid_t process = 0; ///< in which the thread runs
};

} // namespace rk::socket::detail
