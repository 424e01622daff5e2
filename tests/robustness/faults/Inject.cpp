// The policy that makes each of the library's calls fail in turn. Calls from elsewhere are made unchanged.

#include "Inject.h"

#include "Faults.h"
#include "Ledger.h"
#include "Sites.h"
#include "support/interpose/Interpose.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>

namespace rk::tests {

namespace {

/// Readable once a thread of the library is being joined, so that no poll of the library waits any longer.
int pollsEnd() {
    static const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return descriptor;
}

/// Readable after the library has begun to receive or to poll.
int callsBegun() {
    static const int descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    return descriptor;
}

/// How far the library's clock is ahead, in nanoseconds. Pauses advance it instead of waiting.
std::atomic<std::int64_t> ahead{0};

std::atomic<bool> nextThreadFails{false};
std::atomic<unsigned int> receives{0};
std::atomic<unsigned int> connects{0};
std::atomic<bool> polledSinceConnect{false};
std::atomic<long> longestWait{std::numeric_limits<long>::max()}; ///< for a poll, in milliseconds

/// Shortens the wait, because there may be nothing to receive after a rebuild.
bool nothingComes(void* socket) {
    zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
    if (!Faults::operation().progress.warned || socket == nullptr ||
        next<decltype(zmq_poll)>("zmq_poll")(&item, 1, 3) > 0) {
        return false;
    }
    errno = EAGAIN;
    return true;
}

/// Creates a socket even for an unknown pattern.
std::intptr_t makeSocket(Call& call, const Real& real) {
    call.number = call.number == -1 ? ZMQ_PUB : call.number;
    const std::intptr_t socket = real();
    if (socket != 0) {
        Ledger::instance().socketOpened(reinterpret_cast<void*>(socket));
    }
    return socket;
}

/// Closes the socket even if the close is to fail, because nothing else would close it. Sets the linger time, because a
/// fault may have left ZeroMQ's default, which would delay the exit.
std::intptr_t closeSocket(Call& call, const Real& real, std::optional<int> error) {
    Ledger::instance().socketClosed(call.object);
    if (Faults::instance().struck()) {
        const int none = 0;
        next<decltype(zmq_setsockopt)>("zmq_setsockopt")(call.object, ZMQ_LINGER, &none, sizeof none);
    }
    const std::intptr_t result = real();
    return error ? call.fail(*error) : result;
}

std::intptr_t poll(Call& call, const Real& real) {
    call.number = std::min(call.number, longestWait.load());
    return call.size == 1 && call.number > 0 && !Unwatched::isOn() ? pollUnlessReadable(pollsEnd(), call, real)
                                                                   : real();
}

std::intptr_t receive(Call& call, const Real& real) {
    ++receives;
    eventfd_write(callsBegun(), 1);
    const std::intptr_t result = nothingComes(call.object) ? -1 : real();
    Faults::operation().progress.received = Faults::operation().progress.received || result >= 0;
    return result;
}

std::intptr_t goOn(Call& call, const Real& real) {
    switch (call.function) {
    case Function::ZmqSocket:
        return makeSocket(call, real);
    case Function::ZmqPoll:
        return poll(call, real);
    case Function::ZmqRecv:
    case Function::ZmqMsgRecv:
        return receive(call, real);
    case Function::Usleep:
        // A clock that failed returned zero, so that the next block is due years later.
        return call.number > 1000000 && Faults::instance().struck() ? 0 : real();
    default:
        return real();
    }
}

std::intptr_t failOrGoOn(Call& call, const Real& real, std::optional<int> error) {
    if (call.function == Function::ZmqClose) {
        return closeSocket(call, real, error);
    }
    if (error && *error < 0) {
        call.items->revents = *error == readyInError ? ZMQ_POLLERR : short{0};
        return 1;
    }
    return error ? call.fail(*error) : goOn(call, real);
}

std::optional<int> due(int site, Function function, int option = 0) {
    return site == Sites::elsewhere ? std::nullopt : Faults::instance().due(site, function, option);
}

} // namespace

void prepareInjection() {
    pollsEnd();
    callsBegun();
}

unsigned int receivesBegun() {
    return receives;
}

void failNextThread() {
    nextThreadFails = true;
}

void hurryPolls() {
    longestWait = 20;
}

unsigned int connectsBegun() {
    return connects;
}

bool hasPolledSinceConnect() {
    return polledSinceConnect;
}

void awaitCall() {
    constexpr int limit = 50; // milliseconds
    pollfd call{callsBegun(), POLLIN, 0};
    ::poll(&call, 1, limit);
    eventfd_t taken = 0;
    eventfd_read(callsBegun(), &taken);
}

std::intptr_t perform(Call& call, const Real& real) {
    const int site = Sites::instance().of(call.caller);
    if (site == Sites::elsewhere) {
        if (call.function == Function::ZmqClose) {
            Ledger::instance().socketClosedByOthers(call.object);
        }
        return real();
    }
    if (call.function == Function::ZmqConnect) {
        ++connects;
        polledSinceConnect = false;
    } else if (call.function == Function::ZmqPoll) {
        polledSinceConnect = true;
        eventfd_write(callsBegun(), 1);
    }
    const std::intptr_t result =
        failOrGoOn(call, real, Faults::instance().due(site, call.function, static_cast<int>(call.number)));
    if (call.function == Function::ZmqCtxNew && result != 0) {
        Ledger::instance().contextMade(reinterpret_cast<void*>(result));
    } else if (call.function == Function::ZmqTerm || call.function == Function::ZmqCtxDestroy) {
        Ledger::instance().contextTerminated(call.object, result == 0);
    }
    return result;
}

std::intptr_t performOnThread(const Call& call, const Real& real) {
    const int site = Sites::instance().of(call.caller);
    if (call.function == Function::FutureWait) {
        // A listener waits for the end of its thread before it joins it.
        if (site != Sites::elsewhere) {
            eventfd_write(pollsEnd(), 1);
        }
        return real();
    }
    if (site != Sites::elsewhere && call.function == Function::PthreadCreate && nextThreadFails.exchange(false)) {
        return EAGAIN;
    }
    if (const std::optional<int> error = due(site, call.function)) {
        return *error;
    }
    if (site == Sites::elsewhere || call.function != Function::PthreadJoin) {
        return real();
    }
    eventfd_write(pollsEnd(), 1);
    const std::intptr_t joined = real();
    eventfd_t taken = 0;
    eventfd_read(pollsEnd(), &taken);
    return joined;
}

std::intptr_t pauseFor(const Call& call, const Real& real) {
    const int site = Sites::instance().of(call.caller);
    if (site == Sites::elsewhere || call.number < 1000) {
        return real();
    }
    if (Faults::instance().isLasting(Function::ZmqBind)) {
        ahead += call.number;
        return 0;
    }
    const std::optional<int> error = due(site, call.function);
    return error ? call.fail(*error) : real();
}

std::int64_t steadyClock(std::int64_t now, const void* /*caller*/) noexcept {
    return now + ahead;
}

void* allocate(std::size_t size, bool isArray, const void* caller) noexcept {
    const int site = Sites::instance().of(caller);
    return due(site, Function::OperatorNew) ? nullptr : Ledger::allocate(size, isArray, site);
}

void release(void* address, bool isArray, const void* /*caller*/) noexcept {
    Ledger::release(address, isArray);
}

/// Records the line and lets the library write it.
void log(const char* level, const std::string& text, void (*write)(const std::string&)) {
    Operation& operation = Faults::operation();
    operation.progress.warned = operation.progress.warned || std::string_view(level) == "warning";
    Faults::instance().addLine(std::string(level) + ": " + text);
    operation.progress.logging = true;
    write(text);
    operation.progress.logging = false;
}

} // namespace rk::tests
