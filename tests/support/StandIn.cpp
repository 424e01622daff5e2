#include "StandIn.h"

#include "Caller.h"

#include <rk/utils/Log.h>

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <dlfcn.h>
#include <map>
#include <optional>
#include <sstream>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace rk::tests {

namespace {

struct Fault {
    int from;
    int times;
    int error;
};

struct State {
    std::mutex mutex;
    bool active = false;
    std::map<std::string, int> callCount;
    std::map<std::string, Fault> faults;
    std::map<std::string, StandIn::Answer> answers;
    std::map<std::string, std::function<void()>> actions;
    std::optional<double> clock;
    Journal journal;
};

/// Never destroyed: the library calls until the process is gone.
State& state() {
    static auto* const instance = std::make_unique<State>().release();
    return *instance;
}

/// Readable while polls run out. One that has begun to wait ends, too.
int runOutDescriptor() {
    static const int descriptor = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
    return descriptor;
}

/// `zmq_poll` of one item, which also ends, with nothing ready, once polls run out.
template <class Real>
int pollUnlessRunOut(zmq_pollitem_t& item, long timeout, Real* real) {
    zmq_pollitem_t items[]{item, {nullptr, runOutDescriptor(), ZMQ_POLLIN, 0}};
    const int ready = real(items, 2, timeout);
    item.revents = items[0].revents;
    return ready > 0 && item.revents == 0 ? 0 : std::min(ready, 1);
}

template <class Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class... Parts>
std::string lineOf(const std::string& function, const Parts&... parts) {
    std::ostringstream line;
    line << function;
    static_cast<void>((line << ... << parts));
    return line.str();
}

/// The error of the fault that is due for this call, if any.
std::optional<int> dueFault(const std::string& function) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    const int number = ++s.callCount[function];
    const auto fault = s.faults.find(function);
    if (fault == s.faults.end() || number < fault->second.from || number - fault->second.from >= fault->second.times) {
        return std::nullopt;
    }
    return fault->second.error;
}

template <class Result>
std::optional<Result> dueAnswer(const std::string& function) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    const auto found = s.answers.find(function);
    if (found == s.answers.end()) {
        return std::nullopt;
    }
    const auto result = std::get<Result>(found->second);
    s.answers.erase(found);
    return result;
}

void runAction(const std::string& function) {
    std::function<void()> action;
    {
        State& s = state();
        const std::lock_guard<std::mutex> lock(s.mutex);
        const auto found = s.actions.find(function);
        if (found != s.actions.end()) {
            action = found->second;
        }
    }
    if (action) {
        action();
    }
}

bool isActive() {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return s.active;
}

bool isWatched(const void* returnAddress) {
    return isActive() && isInLibrary(returnAddress);
}

/// Notes a call of the library and makes it, or fails, or answers it.
template <class Result, class Real>
Result watch(const std::string& function, const std::string& line, Result failure, const Real& real) {
    // Settled before the call is noted: what a test asks for when it sees the line is for the next call.
    const std::optional<int> error = dueFault(function);
    const std::optional<Result> answer = error ? std::nullopt : dueAnswer<Result>(function);
    state().journal.add(line);
    Result result = failure;
    if (error) {
        errno = *error;
    } else {
        result = answer ? *answer : real();
    }
    runAction(function);
    return result;
}

void log(const std::string& level, const std::string& text) {
    if (isActive()) {
        state().journal.add(level + ": " + text);
        runAction(level);
    }
}

std::string optionValue(const void* value, std::size_t length) {
    return value != nullptr && length == sizeof(int) ? std::to_string(*static_cast<const int*>(value)) : "none";
}

} // namespace

StandIn::StandIn() {
    State& s = state();
    s.journal.clear();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.callCount.clear();
    s.active = true;
}

StandIn::~StandIn() {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.active = false;
    s.faults.clear();
    s.answers.clear();
    s.actions.clear();
    s.clock.reset();
}

Journal& StandIn::journal() {
    return state().journal;
}

void StandIn::fail(const std::string& function, int error, int nth, int times) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.faults[function] = {s.callCount[function] + nth, times, error};
}

void StandIn::answer(const std::string& function, Answer result) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.answers[function] = result;
}

void StandIn::after(const std::string& function, std::function<void()> action) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.actions[function] = std::move(action);
}

void StandIn::setClock(double seconds) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.clock = seconds;
}

PollsRunOut::PollsRunOut() {
    eventfd_write(runOutDescriptor(), 1);
}

PollsRunOut::~PollsRunOut() {
    eventfd_t taken = 0;
    eventfd_read(runOutDescriptor(), &taken);
}

} // namespace rk::tests

namespace {

using namespace rk::tests;

bool readTestClock(timeval& now) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.clock) {
        return false;
    }
    const double whole = std::floor(*s.clock);
    now.tv_sec = static_cast<time_t>(whole);
    now.tv_usec = static_cast<suseconds_t>(std::llround((*s.clock - whole) * 1000000.0));
    return true;
}

bool advanceTestClock(useconds_t pause) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.clock) {
        return false;
    }
    *s.clock += pause / 1000000.0;
    return true;
}

} // namespace

namespace rk::utils {

void logDebug(const std::string& text) {
    log("debug", text);
}

void logWarning(const std::string& text) {
    log("warning", text);
}

void logError(const std::string& text) {
    log("error", text);
}

} // namespace rk::utils

extern "C" {

void* zmq_ctx_new() {
    static auto* const real = realFunction<decltype(zmq_ctx_new)>("zmq_ctx_new");
    return isWatched(__builtin_return_address(0)) ? watch<void*>("zmq_ctx_new", "zmq_ctx_new", nullptr, real) : real();
}

int zmq_term(void* context) {
    static auto* const real = realFunction<decltype(zmq_term)>("zmq_term");
    const auto call = [&] { return real(context); };
    return isWatched(__builtin_return_address(0)) ? watch("zmq_term", "zmq_term", -1, call) : call();
}

int zmq_ctx_destroy(void* context) {
    static auto* const real = realFunction<decltype(zmq_ctx_destroy)>("zmq_ctx_destroy");
    const auto call = [&] { return real(context); };
    return isWatched(__builtin_return_address(0)) ? watch("zmq_ctx_destroy", "zmq_ctx_destroy", -1, call) : call();
}

void* zmq_socket(void* context, int type) {
    static auto* const real = realFunction<decltype(zmq_socket)>("zmq_socket");
    const auto call = [&] { return real(context, type); };
    return isWatched(__builtin_return_address(0))
               ? watch<void*>("zmq_socket", lineOf("zmq_socket", " ", type), nullptr, call)
               : call();
}

int zmq_close(void* socket) {
    static auto* const real = realFunction<decltype(zmq_close)>("zmq_close");
    const auto call = [&] { return real(socket); };
    if (!isWatched(__builtin_return_address(0))) {
        return call();
    }
    // A close that fails still closes: nothing else would.
    state().journal.add("zmq_close");
    const int result = call();
    const std::optional<int> error = dueFault("zmq_close");
    if (error) {
        errno = *error;
    }
    runAction("zmq_close");
    return error ? -1 : result;
}

int zmq_bind(void* socket, const char* address) {
    static auto* const real = realFunction<decltype(zmq_bind)>("zmq_bind");
    const auto call = [&] { return real(socket, address); };
    return isWatched(__builtin_return_address(0)) ? watch("zmq_bind", lineOf("zmq_bind", " ", address), -1, call)
                                                  : call();
}

int zmq_connect(void* socket, const char* address) {
    static auto* const real = realFunction<decltype(zmq_connect)>("zmq_connect");
    const auto call = [&] { return real(socket, address); };
    return isWatched(__builtin_return_address(0)) ? watch("zmq_connect", lineOf("zmq_connect", " ", address), -1, call)
                                                  : call();
}

/// "zmq_setsockopt OPTION = VALUE (LENGTH bytes)". A fault can be set for one option: "zmq_setsockopt OPTION".
int zmq_setsockopt(void* socket, int option, const void* value, size_t length) {
    static auto* const real = realFunction<decltype(zmq_setsockopt)>("zmq_setsockopt");
    const auto call = [&] { return real(socket, option, value, length); };
    const std::string function = lineOf("zmq_setsockopt", " ", option);
    return isWatched(__builtin_return_address(0))
               ? watch(function, lineOf(function, " = ", optionValue(value, length), " (", length, " bytes)"), -1, call)
               : call();
}

int zmq_send(void* socket, const void* data, size_t size, int flags) {
    static auto* const real = realFunction<decltype(zmq_send)>("zmq_send");
    const auto call = [&] { return real(socket, data, size, flags); };
    return isWatched(__builtin_return_address(0))
               ? watch("zmq_send", lineOf("zmq_send", " ", size, " bytes, flags ", flags), -1, call)
               : call();
}

int zmq_recv(void* socket, void* buffer, size_t size, int flags) {
    static auto* const real = realFunction<decltype(zmq_recv)>("zmq_recv");
    const auto call = [&] { return real(socket, buffer, size, flags); };
    return isWatched(__builtin_return_address(0))
               ? watch("zmq_recv", lineOf("zmq_recv", " ", size, " bytes, flags ", flags), -1, call)
               : call();
}

/// An answer is the number of ready items, with no event returned for any.
int zmq_poll(zmq_pollitem_t* items, int count, long timeout) {
    static auto* const real = realFunction<decltype(zmq_poll)>("zmq_poll");
    const auto call = [&] {
        return count == 1 ? pollUnlessRunOut(*items, timeout, real) : real(items, count, timeout);
    };
    return isWatched(__builtin_return_address(0))
               ? watch("zmq_poll",
                       lineOf("zmq_poll", " ", count, " items, events ", items->events, ", ", timeout, " ms"), -1, call)
               : real(items, count, timeout);
}

int chmod(const char* path, mode_t mode) {
    static auto* const real = realFunction<decltype(chmod)>("chmod");
    const auto call = [&] { return real(path, mode); };
    return isWatched(__builtin_return_address(0))
               ? watch("chmod", lineOf("chmod", " ", path, " ", std::oct, mode), -1, call)
               : call();
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) {
    static auto* const real = realFunction<int(timeval*, void*)>("gettimeofday");
    const auto call = [&] { return readTestClock(*now) ? 0 : real(now, zone); };
    return isWatched(__builtin_return_address(0)) ? watch("gettimeofday", "gettimeofday", -1, call) : real(now, zone);
}

/// The library's pause of the bit-rate cap: while a test has a clock of its own, that clock goes on instead.
int usleep(useconds_t pause) {
    static auto* const real = realFunction<decltype(usleep)>("usleep");
    const auto call = [&] { return advanceTestClock(pause) ? 0 : real(pause); };
    return isWatched(__builtin_return_address(0)) ? watch("usleep", lineOf("usleep", " ", pause), -1, call)
                                                  : real(pause);
}

} // extern "C"
