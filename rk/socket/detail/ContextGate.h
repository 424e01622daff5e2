#pragma once

#include <zmq.h>

#include <mutex>
#include <string>

namespace rk::socket::detail {

/// Rejects calls on the context of the process after its termination has begun.
///
/// ZeroMQ's termination reads the pending inproc connections without their lock, so a concurrent bind or connect of an
/// inproc name can hang the exit. A socket that is created after the termination uses freed memory. The gate admits
/// these calls one at a time, and none after it is shut.
///
/// Any thread may call the operations. The data path does not use the gate.
class ContextGate {
public:
    /// Returns the gate of the process. It is never destroyed, because sockets are used until the process ends.
    static ContextGate& ofProcess();

    /// Runs `call`, which returns 0 or an error number, while no other call is inside. Returns its result. Once the
    /// gate is shut, returns `ETERM` without running it.
    /// \throws std::system_error if the lock fails
    template <class Call>
    int pass(const Call& call) {
        const std::lock_guard<std::mutex> lock(mutex);
        return isShut ? ETERM : call();
    }

    /// Waits for the call inside, if any, and rejects all later ones.
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
