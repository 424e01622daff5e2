#pragma once

#include <zmq.h>

#include <mutex>
#include <string>

namespace rk::socket::detail {

/// Refuses work on the context of the process once its termination has begun.
///
/// ZeroMQ's termination reads the pending inproc connections without their lock, so a bind or connect of an inproc name
/// at that moment can hang the exit. A socket that is made after the termination uses released memory. The gate admits
/// these calls one at a time, and none after it is shut.
///
/// Any thread may call the operations. The data path does not pass the gate.
class ContextGate {
public:
    /// Returns the gate of the process. It is never destroyed, because sockets are used until the process is gone.
    static ContextGate& ofProcess();

    /// Runs `call`, which returns 0 or an error number, while no other call is inside. Returns its result, or `ETERM`
    /// without running it once the gate is shut.
    /// \throws std::system_error if the lock fails
    template <class Call>
    int pass(const Call& call) {
        const std::lock_guard<std::mutex> lock(mutex);
        return isShut ? ETERM : call();
    }

    /// Waits for the call inside, if any, and refuses all others from now on.
    void shut();

    /// Calls `zmq_bind`, inside the gate if `address` is an inproc name. Returns 0 or the error number.
    /// \throws std::system_error if the lock fails
    int bind(void* socket, const std::string& address);

    /// Calls `zmq_connect` as `bind` calls `zmq_bind`.
    int connect(void* socket, const std::string& address);

private:
    std::mutex mutex;
    bool isShut = false;
};

} // namespace rk::socket::detail
