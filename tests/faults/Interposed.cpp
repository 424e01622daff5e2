// The functions that the library calls. The executable's are found first by the dynamic linker; a call that does not come
// from the library goes to the real one at once.

#include "Interposed.h"

#include "Faults.h"
#include "Ledger.h"
#include "Lines.h"
#include "Sites.h"

#include <rk/utils/Log.h>

#include <zmq.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <dlfcn.h>
#include <new>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace rk::tests {

namespace {

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::optional<int> due(int site, std::string_view function, int option = 0) {
    return site == Sites::elsewhere ? std::nullopt : Faults::instance().due(site, function, option);
}

/// Makes the call, or lets it fail the way that leaves the error in `errno`.
template <class Result, class Call>
Result callOrFail(const void* caller, std::string_view function, Result failure, const Call& call, int option = 0) {
    const std::optional<int> error = due(Sites::instance().of(caller), function, option);
    if (!error) {
        return call();
    }
    errno = *error;
    return failure;
}

/// As above, for functions that return their error.
template <class Call>
int callOrReturnError(const void* caller, std::string_view function, const Call& call) {
    const std::optional<int> error = due(Sites::instance().of(caller), function);
    return error ? *error : call();
}

bool isOurs(const void* caller) {
    return Sites::instance().of(caller) != Sites::elsewhere;
}

/// Readable once a thread of the library is waited for: no poll of the library waits any more.
int pollsEnd() {
    static const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return descriptor;
}

/// After a rebuild there may be nothing more to receive: the time then runs out sooner than the scenario says.
bool nothingComes(void* socket) {
    zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
    if (!Faults::operation().progress.warned || socket == nullptr ||
        real<decltype(zmq_poll)>("zmq_poll")(&item, 1, 3) > 0) {
        return false;
    }
    errno = EAGAIN;
    return true;
}

/// How far the library's clock is ahead: by the pauses that it would have made.
std::atomic<std::chrono::nanoseconds> ahead{std::chrono::nanoseconds::zero()};

void* allocate(std::size_t size, bool isArray, const void* caller) noexcept {
    const int site = Sites::instance().of(caller);
    return due(site, "operator new") ? nullptr : Ledger::allocate(size, isArray, site);
}

void* allocateOrThrow(std::size_t size, bool isArray, const void* caller) {
    void* const memory = allocate(size, isArray, caller);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

using LogCall = void(const std::string&);

/// Notes the line, and has it written as the library writes it.
void log(const char* level, const std::string& text, LogCall* write) {
    Progress& progress = Faults::operation().progress;
    progress.warned = progress.warned || std::string_view(level) == "warning";
    progress.connected = progress.connected || text.compare(0, 9, "Connected") == 0;
    progress.attached = progress.attached || (progress.warned && text.compare(0, 9, "Connected") == 0);
    progress.told = progress.told || std::string_view(level) == "error";
    Lines::instance().add(level, text);
    progress.logging = true;
    write(text);
    progress.logging = false;
}

} // namespace

void prepareInterposition() {
    pollsEnd();
}

} // namespace rk::tests

using namespace rk::tests;

namespace rk::utils {

void logDebug(const std::string& text) {
    static auto* const write =
        real<LogCall>("_ZN2rk5utils8logDebugERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    log("debug", text, write);
}

void logWarning(const std::string& text) {
    static auto* const write =
        real<LogCall>("_ZN2rk5utils10logWarningERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    log("warning", text, write);
}

void logError(const std::string& text) {
    static auto* const write =
        real<LogCall>("_ZN2rk5utils8logErrorERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    log("error", text, write);
}

} // namespace rk::utils

extern "C" {

void* zmq_ctx_new() {
    static auto* const call = real<decltype(zmq_ctx_new)>("zmq_ctx_new");
    const void* const caller = __builtin_return_address(0);
    void* const context = callOrFail<void*>(caller, "zmq_ctx_new", nullptr, call);
    if (context != nullptr && isOurs(caller)) {
        Ledger::instance().contextMade(context);
    }
    return context;
}

int zmq_term(void* context) {
    static auto* const call = real<decltype(zmq_term)>("zmq_term");
    const void* const caller = __builtin_return_address(0);
    const int result = callOrFail(caller, "zmq_term", -1, [&] { return call(context); });
    if (isOurs(caller)) {
        Ledger::instance().contextTerminated(context, result == 0);
    }
    return result;
}

int zmq_ctx_destroy(void* context) {
    static auto* const call = real<decltype(zmq_ctx_destroy)>("zmq_ctx_destroy");
    const void* const caller = __builtin_return_address(0);
    const int result = callOrFail(caller, "zmq_ctx_destroy", -1, [&] { return call(context); });
    if (isOurs(caller)) {
        Ledger::instance().contextTerminated(context, result == 0);
    }
    return result;
}

/// Gives a socket for what is no pattern, too.
void* zmq_socket(void* context, int type) {
    static auto* const call = real<decltype(zmq_socket)>("zmq_socket");
    const void* const caller = __builtin_return_address(0);
    void* const socket = callOrFail<void*>(
        caller, "zmq_socket", nullptr, [&] { return call(context, isOurs(caller) && type == -1 ? ZMQ_PUB : type); });
    if (socket != nullptr && isOurs(caller)) {
        Ledger::instance().socketOpened(socket);
        Faults::operation().progress.opened = true;
    }
    return socket;
}

int zmq_close(void* socket) {
    static auto* const call = real<decltype(zmq_close)>("zmq_close");
    const void* const caller = __builtin_return_address(0);
    if (!isOurs(caller)) {
        Ledger::instance().socketClosedByOthers(socket);
    } else {
        Ledger::instance().socketClosed(socket);
        Faults::operation().progress.released = true;
        if (Faults::instance().struck()) {
            // Where the linger time could not be set, 0MQ's own holds, and an exit would wait.
            const int none = 0;
            real<decltype(zmq_setsockopt)>("zmq_setsockopt")(socket, ZMQ_LINGER, &none, sizeof none);
        }
    }
    // One that fails has closed: nothing else would.
    const int result = call(socket);
    return callOrFail(caller, "zmq_close", -1, [&] { return result; });
}

int zmq_bind(void* socket, const char* address) {
    static auto* const call = real<decltype(zmq_bind)>("zmq_bind");
    return callOrFail(__builtin_return_address(0), "zmq_bind", -1, [&] { return call(socket, address); });
}

int zmq_connect(void* socket, const char* address) {
    static auto* const call = real<decltype(zmq_connect)>("zmq_connect");
    return callOrFail(__builtin_return_address(0), "zmq_connect", -1, [&] { return call(socket, address); });
}

int zmq_setsockopt(void* socket, int option, const void* value, size_t length) {
    static auto* const call = real<decltype(zmq_setsockopt)>("zmq_setsockopt");
    return callOrFail(
        __builtin_return_address(0), "zmq_setsockopt", -1, [&] { return call(socket, option, value, length); }, option);
}

int zmq_send(void* socket, const void* data, size_t size, int flags) {
    static auto* const call = real<decltype(zmq_send)>("zmq_send");
    return callOrFail(__builtin_return_address(0), "zmq_send", -1, [&] { return call(socket, data, size, flags); });
}

int zmq_recv(void* socket, void* buffer, size_t size, int flags) {
    static auto* const call = real<decltype(zmq_recv)>("zmq_recv");
    const void* const caller = __builtin_return_address(0);
    const int result = callOrFail(caller, "zmq_recv", -1, [&] {
        return isOurs(caller) && nothingComes(socket) ? -1 : call(socket, buffer, size, flags);
    });
    if (result >= 0) {
        Faults::operation().progress.received = true;
    }
    return result;
}

int zmq_poll(zmq_pollitem_t* items, int count, long timeout) {
    static auto* const call = real<decltype(zmq_poll)>("zmq_poll");
    const std::optional<int> error = due(Sites::instance().of(__builtin_return_address(0)), "zmq_poll");
    if (error && *error < 0) {
        items->revents = *error == readyInError ? ZMQ_POLLERR : short{0};
        return 1;
    }
    if (error) {
        errno = *error;
        return -1;
    }
    if (count != 1 || timeout <= 0) {
        return call(items, count, timeout);
    }
    zmq_pollitem_t both[]{*items, {nullptr, pollsEnd(), ZMQ_POLLIN, 0}};
    const int ready = call(both, 2, timeout);
    items->revents = both[0].revents;
    return ready > 0 && items->revents == 0 ? 0 : std::min(ready, 1);
}

int eventfd(unsigned int count, int flags) {
    static auto* const call = real<decltype(eventfd)>("eventfd");
    return callOrFail(__builtin_return_address(0), "eventfd", -1, [&] { return call(count, flags); });
}

int chmod(const char* path, mode_t mode) {
    static auto* const call = real<decltype(chmod)>("chmod");
    return callOrFail(__builtin_return_address(0), "chmod", -1, [&] { return call(path, mode); });
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) {
    static auto* const call = real<int(timeval*, void*)>("gettimeofday");
    return callOrFail(__builtin_return_address(0), "gettimeofday", -1, [&] { return call(now, zone); });
}

/// The library's pause of the bit-rate cap, which may fail; the harness itself never pauses by it.
int usleep(useconds_t pause) {
    static auto* const call = real<decltype(usleep)>("usleep");
    const void* const caller = __builtin_return_address(0);
    // A clock that failed stands at zero, and the next block is due years later.
    const bool isEndless = isOurs(caller) && pause > 1000000 && Faults::instance().struck();
    return callOrFail(caller, "usleep", -1, [&] { return isEndless ? 0 : call(pause); });
}

/// Interrupted, it has slept for half of the time.
int nanosleep(const timespec* pause, timespec* rest) {
    static auto* const call = real<decltype(nanosleep)>("nanosleep");
    if (pause->tv_sec == 0 && pause->tv_nsec < 1000) {
        return call(pause, rest);
    }
    if (isOurs(__builtin_return_address(0)) && Faults::instance().isLasting("zmq_bind")) {
        ahead = ahead.load() + std::chrono::seconds(pause->tv_sec) + std::chrono::nanoseconds(pause->tv_nsec);
        return 0;
    }
    const timespec half{pause->tv_sec / 2, pause->tv_nsec / 2};
    const int result = callOrFail(__builtin_return_address(0), "nanosleep", -1, [&] { return call(pause, rest); });
    if (result < 0 && rest != nullptr) {
        *rest = half;
    }
    return result;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static auto* const call = real<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
    return callOrReturnError(__builtin_return_address(0), "pthread_mutex_lock", [&] { return call(mutex); });
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* argument) {
    static auto* const call = real<decltype(pthread_create)>("pthread_create");
    return callOrReturnError(__builtin_return_address(0), "pthread_create",
                             [&] { return call(thread, attributes, function, argument); });
}

int pthread_join(pthread_t thread, void** result) {
    static auto* const call = real<decltype(pthread_join)>("pthread_join");
    const void* const caller = __builtin_return_address(0);
    if (!isOurs(caller)) {
        return call(thread, result);
    }
    return callOrReturnError(caller, "pthread_join", [&] {
        eventfd_write(pollsEnd(), 1);
        const int joined = call(thread, result);
        eventfd_t taken = 0;
        eventfd_read(pollsEnd(), &taken);
        return joined;
    });
}

} // extern "C"

/// The clock by which the library waits for an address.
std::chrono::steady_clock::time_point steadyNow() asm("_ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point steadyNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto time = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec) + ahead.load();
    return std::chrono::steady_clock::time_point(time);
}

void* operator new(std::size_t size) {
    return allocateOrThrow(size, false, __builtin_return_address(0));
}

void* operator new[](std::size_t size) {
    return allocateOrThrow(size, true, __builtin_return_address(0));
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, false, __builtin_return_address(0));
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, true, __builtin_return_address(0));
}

void operator delete(void* address) noexcept {
    Ledger::release(address, false);
}

void operator delete[](void* address) noexcept {
    Ledger::release(address, true);
}

void operator delete(void* address, std::size_t /*size*/) noexcept {
    Ledger::release(address, false);
}

void operator delete[](void* address, std::size_t /*size*/) noexcept {
    Ledger::release(address, true);
}

void operator delete(void* address, const std::nothrow_t& /*tag*/) noexcept {
    Ledger::release(address, false);
}

void operator delete[](void* address, const std::nothrow_t& /*tag*/) noexcept {
    Ledger::release(address, true);
}
