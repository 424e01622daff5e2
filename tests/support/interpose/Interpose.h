#pragma once

#include <zmq.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <netdb.h>
#include <string>
#include <string_view>
#include <type_traits>

/// \file
/// Intercepts the functions that the library calls.
///
/// A test executable defines functions of the same names, and the dynamic linker finds these first. They pass each call
/// to a policy, which the executable defines. An executable links the parts that it needs:
///
/// | part | functions | policy |
/// |---|---|---|
/// | Zmq.cpp | ZeroMQ's | `perform` |
/// | System.cpp | chmod, gettimeofday, usleep | `perform` |
/// | Files.cpp | open, mkostemp, fstat, read, write, fsync, link | `perform` |
/// | Names.cpp | getifaddrs, getaddrinfo | `perform` |
/// | Threads.cpp | pthread_mutex_lock, pthread_create, pthread_join, a future's wait | `performOnThread` |
/// | Clock.cpp | nanosleep, the steady clock | `pauseFor`, `steadyClock` |
/// | Memory.cpp | operator new and delete | `allocate`, `release` |
/// | Log.cpp | the three logging functions | `log` |
///
/// The policies are:
///
/// - journal and single faults: StandIn.cpp, ThreadFaults.cpp, SteadyClock.cpp, Allocations.cpp
/// - inject, every fault at every call: robustness/faults/Inject.cpp
/// - model: robustness/fuzz/Boundary.cpp
/// - stub: cost/zmq_stub.cpp

namespace rk::tests {

enum class Function {
    ZmqCtxNew,
    ZmqCtxSet,
    ZmqTerm,
    ZmqCtxDestroy,
    ZmqSocket,
    ZmqClose,
    ZmqBind,
    ZmqConnect,
    ZmqDisconnect,
    ZmqSetsockopt,
    ZmqGetsockopt,
    ZmqSend,
    ZmqRecv,
    ZmqMsgRecv,
    ZmqPoll,
    ZmqCurveKeypair,
    ZmqCurvePublic,
    Chmod,
    Open,
    Mkostemp,
    Fstat,
    Read,
    Write,
    Fsync,
    Link,
    Getifaddrs,
    Getaddrinfo,
    Gettimeofday,
    Usleep,
    Nanosleep,
    FutureWait,
    PthreadMutexLock,
    PthreadCreate,
    PthreadJoin,
    OperatorNew
};

/// These replace an error number: `zmq_poll` reports the socket as ready, with no event or with an unexpected one.
constexpr int readyForNothing = -1;
constexpr int readyInError = -2;

struct Intercepted {
    std::string_view name;
    std::intptr_t failure;      ///< the result of a call that sets `errno`
    std::array<int, 10> errors; ///< the errors in its manual page, then 0
};

/// In the order of `Function`.
constexpr Intercepted intercepted[] = {
    {"zmq_ctx_new", 0, {EMFILE, ENOMEM}},
    {"zmq_ctx_set", -1, {EINVAL, EFAULT}},
    {"zmq_term", -1, {EINTR, EFAULT}},
    {"zmq_ctx_destroy", -1, {EINTR, EFAULT}},
    {"zmq_socket", 0, {EMFILE, EINVAL, EFAULT, ETERM}},
    {"zmq_close", -1, {ENOTSOCK}},
    {"zmq_bind",
     -1,
     {EADDRINUSE, EINVAL, EPROTONOSUPPORT, ENOCOMPATPROTO, EADDRNOTAVAIL, ENODEV, ETERM, ENOTSOCK, EMTHREAD}},
    {"zmq_connect", -1, {EINVAL, EPROTONOSUPPORT, ENOCOMPATPROTO, ETERM, ENOTSOCK, EMTHREAD}},
    {"zmq_disconnect", -1, {EINVAL, ETERM, ENOTSOCK, ENOENT}},
    {"zmq_setsockopt", -1, {EINVAL, ETERM, ENOTSOCK, EINTR}},
    {"zmq_getsockopt", -1, {EINVAL, ETERM, ENOTSOCK, EINTR}},
    {"zmq_send", -1, {EFSM, EAGAIN, ENOTSUP, EINVAL, ETERM, ENOTSOCK, EINTR, EHOSTUNREACH}},
    {"zmq_recv", -1, {EFSM, EAGAIN, ENOTSUP, ETERM, ENOTSOCK, EINTR}},
    {"zmq_msg_recv", -1, {EFSM, EAGAIN, ENOTSUP, ETERM, ENOTSOCK, EINTR}},
    {"zmq_poll", -1, {EINTR, ETERM, EFAULT, readyForNothing, readyInError}},
    {"zmq_curve_keypair", -1, {ENOTSUP}},
    {"zmq_curve_public", -1, {ENOTSUP, EINVAL}},
    {"chmod", -1, {EPERM, EACCES, EFAULT, EIO, ELOOP, ENAMETOOLONG, ENOENT, ENOMEM, ENOTDIR, EROFS}},
    {"open", -1, {EMFILE, EACCES, ELOOP, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM, ENOTDIR}},
    {"mkostemp", -1, {EEXIST, EACCES, EMFILE, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM, ENOSPC, ENOTDIR, EROFS}},
    {"fstat", -1, {EBADF, EFAULT, ENOMEM, EOVERFLOW}},
    {"read", -1, {EINTR, EIO, EISDIR, EINVAL}},
    {"write", -1, {EDQUOT, EFBIG, EINTR, EIO, ENOSPC}},
    {"fsync", -1, {EDQUOT, EINTR, EIO, ENOSPC, EROFS}},
    {"link", -1, {EEXIST, EACCES, EDQUOT, EIO, EMLINK, ENOENT, ENOMEM, ENOSPC, EPERM, EROFS}},
    {"getifaddrs", -1, {EMFILE, ENOBUFS, ENOMEM}},
    {"getaddrinfo", EAI_SYSTEM, {EMFILE, ENOMEM}},
    {"gettimeofday", -1, {EFAULT, EINVAL}},
    {"usleep", -1, {EINTR, EINVAL}},
    {"nanosleep", -1, {EINTR, EFAULT, EINVAL}},
    {"future wait", 0, {}},
    {"pthread_mutex_lock", 0, {EINVAL, EAGAIN, EDEADLK, ENOTRECOVERABLE}},
    {"pthread_create", 0, {EAGAIN, EINVAL, EPERM}},
    {"pthread_join", 0, {EDEADLK, EINVAL, ESRCH}},
    {"operator new", 0, {ENOMEM}},
};

constexpr const Intercepted& entryOf(Function function) {
    return intercepted[static_cast<std::size_t>(function)];
}

/// A call and its arguments. A policy may change them before it makes the call.
struct Call {
    Function function;
    const void* caller;         ///< the return address
    void* object = nullptr;     ///< a socket or a context
    const char* text = nullptr; ///< an address or a path
    long number = 0;            ///< a type, an option, a mode, a timeout, a pause, a family
    const void* data = nullptr; ///< the buffer to send from, to receive into, or to set
    std::size_t size = 0;       ///< in bytes, or the number of items
    int flags = 0;
    zmq_pollitem_t* items = nullptr;

    std::string name() const { return std::string(entryOf(function).name); }

    /// Sets `errno` and returns the result of a failure.
    std::intptr_t fail(int error) const {
        errno = error;
        return entryOf(function).failure;
    }
};

/// Makes the real call with its current arguments. Refers to the constructor's arguments.
class Real {
public:
    template <class Action>
    explicit Real(const Action& action)
        : object(&action), invoke([](const void* target) { return resultOf(*static_cast<const Action*>(target)); }) {}

    std::intptr_t operator()() const { return invoke(object); }

private:
    template <class Action>
    static std::intptr_t resultOf(const Action& action) {
        if constexpr (std::is_pointer_v<decltype(action())>) {
            return reinterpret_cast<std::intptr_t>(action());
        } else {
            return action();
        }
    }

    const void* object;
    std::intptr_t (*invoke)(const void*);
};

/// Returns the original function of this name.
template <class Signature>
Signature* next(const char* name) {
    return reinterpret_cast<Signature*>(dlsym(RTLD_NEXT, name));
}

/// Polls one item. Returns 0 once `descriptor` is readable.
inline std::intptr_t pollUnlessReadable(int descriptor, Call& call, const Real& real) {
    zmq_pollitem_t& item = *call.items;
    zmq_pollitem_t both[]{item, {nullptr, descriptor, ZMQ_POLLIN, 0}};
    call.items = both;
    call.size = 2;
    const std::intptr_t ready = real();
    item.revents = both[0].revents;
    return ready > 0 ? (item.revents != 0 ? 1 : 0) : ready;
}

// The policies. Those for threads return the error number.

std::intptr_t perform(Call& call, const Real& real);
std::intptr_t performOnThread(const Call& call, const Real& real);

/// Pauses for the nanoseconds in `call`.
std::intptr_t pauseFor(const Call& call, const Real& real);
/// Returns the library's time from the system's, in nanoseconds.
std::int64_t steadyClock(std::int64_t now, const void* caller) noexcept;

/// Returns null if the allocation is to fail.
void* allocate(std::size_t size, bool isArray, const void* caller) noexcept;
void release(void* address, bool isArray, const void* caller) noexcept;

/// `write` is the library's own function.
void log(const char* level, const std::string& text, void (*write)(const std::string&));

} // namespace rk::tests
