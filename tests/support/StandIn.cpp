#include "StandIn.h"

#include "Caller.h"
#include "Immortal.h"
#include "interpose/Interpose.h"

#include <cerrno>
#include <cmath>
#include <map>
#include <optional>
#include <sstream>
#include <sys/eventfd.h>
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

/// Never destroyed, because the library makes calls until the process ends.
State& state() {
    return immortal<State>();
}

/// Readable while polls run out, so that polls that have already begun end too.
int runOutDescriptor() {
    static const int descriptor = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
    return descriptor;
}

template <class... Parts>
std::string lineOf(const Parts&... parts) {
    std::ostringstream line;
    static_cast<void>((line << ... << parts));
    return line.str();
}

/// Returns the name by which a test refers to the call, such as "zmq_bind" or "zmq_setsockopt OPTION".
std::string keyOf(const Call& call) {
    const bool hasOption = call.function == Function::ZmqSetsockopt || call.function == Function::ZmqGetsockopt;
    return hasOption ? lineOf(call.name(), " ", call.number) : call.name();
}

std::string optionValue(const Call& call) {
    if (call.data == nullptr) {
        return "none";
    }
    if (call.size == sizeof(int)) {
        return std::to_string(*static_cast<const int*>(call.data));
    }
    if (call.size == sizeof(std::int64_t)) {
        return std::to_string(*static_cast<const std::int64_t*>(call.data));
    }
    return {static_cast<const char*>(call.data), call.size};
}

std::string lineOf(const Call& call) {
    switch (call.function) {
    case Function::ZmqSocket:
        return lineOf(call.name(), " ", call.number);
    case Function::Usleep:
        return lineOf(call.name(), " ", static_cast<useconds_t>(call.number));
    case Function::ZmqBind:
    case Function::ZmqConnect:
    case Function::ZmqDisconnect:
        return lineOf(call.name(), " ", call.text);
    case Function::ZmqSetsockopt:
        return lineOf(keyOf(call), " = ", optionValue(call), " (", call.size, " bytes)");
    case Function::ZmqSend:
    case Function::ZmqRecv:
        return lineOf(call.name(), " ", call.size, " bytes, flags ", call.flags);
    case Function::ZmqMsgRecv:
        return lineOf(call.name(), " flags ", call.flags);
    case Function::ZmqPoll:
        return lineOf(call.name(), " ", call.size, " items, events ", call.items->events, ", ", call.number, " ms");
    case Function::Getaddrinfo:
        return lineOf(call.name(), " ", call.text, " ", call.number);
    case Function::Chmod:
        return lineOf(call.name(), " ", call.text, " ", std::oct, call.number);
    default:
        return call.name();
    }
}

/// Returns the error of the fault that is due for this call, if any.
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

std::optional<std::intptr_t> dueAnswer(const std::string& function) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    const auto found = s.answers.find(function);
    if (found == s.answers.end()) {
        return std::nullopt;
    }
    const StandIn::Answer answer = found->second;
    s.answers.erase(found);
    const int* const number = std::get_if<int>(&answer);
    return number != nullptr ? *number : reinterpret_cast<std::intptr_t>(std::get<void*>(answer));
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

/// Advances the test's clock by the library's pauses.
std::intptr_t goOn(Call& call, const Real& real) {
    switch (call.function) {
    case Function::ZmqPoll:
        return call.size == 1 ? pollUnlessReadable(runOutDescriptor(), call, real) : real();
    case Function::Gettimeofday:
        return readTestClock(*static_cast<timeval*>(call.object)) ? 0 : real();
    case Function::Usleep:
        return advanceTestClock(static_cast<useconds_t>(call.number)) ? 0 : real();
    default:
        return real();
    }
}

/// Records a call of the library. Then makes it, fails it or answers it.
std::intptr_t watch(Call& call, const Real& real) {
    const std::string function = keyOf(call);
    // Before the call is recorded, because a fault that a test requests when it sees the line is for the next call.
    const std::optional<int> error = dueFault(function);
    const std::optional<std::intptr_t> answer = error ? std::nullopt : dueAnswer(function);
    state().journal.add(lineOf(call));
    const std::intptr_t result = error ? call.fail(*error) : answer ? *answer : goOn(call, real);
    runAction(function);
    return result;
}

/// Closes the socket even if the close is to fail, because nothing else would close it.
std::intptr_t watchClose(const Call& call, const Real& real) {
    state().journal.add(call.name());
    const std::optional<std::intptr_t> answer = dueAnswer(call.name());
    const std::intptr_t result = answer ? *answer : real();
    const std::optional<int> error = dueFault(call.name());
    if (error) {
        call.fail(*error);
    }
    runAction(call.name());
    return error ? -1 : result;
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

std::intptr_t perform(Call& call, const Real& real) {
    if (!isActive() || !isInLibrary(call.caller)) {
        return real();
    }
    return call.function == Function::ZmqClose ? watchClose(call, real) : watch(call, real);
}

void log(const char* level, const std::string& text, void (* /*write*/)(const std::string&)) {
    if (isActive()) {
        state().journal.add(lineOf(level, ": ", text));
        runAction(level);
    }
}

} // namespace rk::tests
