#include "robustness/fuzz/Boundary.h"

#include "robustness/fuzz/Require.h"
#include "support/interpose/Interpose.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sys/time.h>
#include <utility>

namespace rk::tests {

namespace {

/// The boundary that runs an operation on this thread.
thread_local Boundary* watching = nullptr;

/// The error number after a successful call, which may leave any.
constexpr int leftover = EXDEV;

/// Returns the inproc name that replaces an address. For TCP, only the port counts. The names differ between
/// boundaries, so that inputs do not affect each other.
std::string onInproc(const std::string& address, unsigned long boundary) {
    const std::string suffix = " of " + std::to_string(boundary);
    if (address.rfind("tcp://", 0) == 0) {
        return "inproc://tcp" + address.substr(address.rfind(':')) + suffix;
    }
    return (address.rfind("ipc://", 0) == 0 ? "inproc://" : "") + address + suffix;
}

unsigned long countOfBoundaries = 0;

} // namespace

/// The boundary's versions of the functions that the library calls.
struct Calls {
    Boundary& boundary;
    Call& call;
    const Real& real;

    std::intptr_t answer() const {
        switch (call.function) {
        case Function::ZmqSocket:
            return socket();
        case Function::ZmqClose:
            return close();
        case Function::ZmqBind:
            return bind();
        case Function::ZmqConnect:
            return connect();
        case Function::ZmqSetsockopt:
            return setOption();
        case Function::ZmqSend:
            return send();
        case Function::ZmqRecv:
            return receive();
        case Function::ZmqPoll:
            return poll();
        case Function::Chmod:
            return make(" " + std::string(call.text) + " " + std::to_string(call.number), [] { return 0; }).result;
        case Function::Gettimeofday:
            return readClock();
        case Function::Usleep:
            return pause();
        default:
            return real();
        }
    }

    Event& add(const std::string& arguments) const { return boundary.add(holder() + call.name() + arguments); }

    /// Returns "#N " for an open socket and "#0 " for null. Any other handle is of a closed socket.
    std::string holder() const {
        void* const handle = call.function == Function::ZmqPoll ? call.items->socket : call.object;
        const bool hasNone = call.function == Function::ZmqSocket || call.function == Function::Gettimeofday ||
                             call.function == Function::Chmod || call.function == Function::Usleep;
        if (hasNone || handle == nullptr) {
            return hasNone ? "" : "#0 ";
        }
        const auto found = boundary.sockets.find(handle);
        require(found != boundary.sockets.end(), "a native socket is used that is not open");
        return "#" + std::to_string(found->second.number) + " ";
    }

    bool faultIsDue() const {
        const Fault& fault = boundary.current;
        ++boundary.calls;
        return boundary.calls >= fault.from && boundary.calls - fault.from < fault.times;
    }

    /// Records a call. Then makes it or fails it.
    template <class Action>
    Event& make(const std::string& arguments, const Action& action) const {
        Event& event = add(arguments);
        const auto failure = static_cast<int>(entryOf(call.function).failure);
        event.isInjected = faultIsDue() && boundary.current.error != 0;
        event.result = event.isInjected ? failure : static_cast<int>(action());
        if (event.result == failure) {
            event.error = event.isInjected ? boundary.current.error : errno;
        }
        errno = event.error != 0 ? event.error : leftover;
        return event;
    }

    std::intptr_t socket() const {
        std::intptr_t handle = 0;
        make(" " + std::to_string(call.number), [&] {
            handle = real();
            if (handle == 0) {
                return 0;
            }
            boundary.sockets[reinterpret_cast<void*>(handle)] = {++boundary.socketsMade, false, {}, {}};
            return boundary.socketsMade;
        });
        return handle;
    }

    /// Drops unsent messages, so that the close does not wait for them.
    std::intptr_t close() const {
        Event& event = add("");
        event.isInjected = faultIsDue() && boundary.current.error != 0;
        const int linger = 0;
        next<decltype(zmq_setsockopt)>("zmq_setsockopt")(call.object, ZMQ_LINGER, &linger, sizeof linger);
        boundary.sockets.erase(call.object);
        event.result = static_cast<int>(real());
        errno = event.isInjected ? boundary.current.error : leftover;
        return event.isInjected ? -1 : event.result;
    }

    std::intptr_t bind() const {
        return make(std::string(" ") + call.text,
                    [&] {
                        const std::string name = onInproc(call.text, boundary.identity);
                        const std::intptr_t result = realAt(name);
                        if (result == 0) {
                            boundary.sockets[call.object].bound.insert(name);
                            connectWhoWaitsFor(name);
                        }
                        return result;
                    })
            .result;
    }

    std::intptr_t connect() const {
        return make(std::string(" ") + call.text,
                    [&] {
                        const std::string name = onInproc(call.text, boundary.identity);
                        if (name.rfind("inproc://", 0) != 0 || isBound(name)) {
                            boundary.sockets[call.object].isConnected = true;
                            return realAt(name);
                        }
                        boundary.sockets[call.object].waitsFor.insert(name);
                        return std::intptr_t{0};
                    })
            .result;
    }

    /// Makes the call with another address.
    std::intptr_t realAt(const std::string& address) const {
        const char* const asked = std::exchange(call.text, address.c_str());
        const std::intptr_t result = real();
        call.text = asked;
        return result;
    }

    bool isBound(const std::string& name) const {
        return std::any_of(boundary.sockets.begin(), boundary.sockets.end(),
                           [&](const auto& socket) { return socket.second.bound.count(name) != 0; });
    }

    /// Connects the sockets that wait for this inproc name. ZeroMQ could connect to an unbound name, but would not
    /// release a socket that is closed before the bind. At process exit, its threads would then race.
    void connectWhoWaitsFor(const std::string& name) const {
        for (auto& [handle, waiting] : boundary.sockets) {
            if (waiting.waitsFor.erase(name) != 0) {
                waiting.isConnected = true;
                next<decltype(zmq_connect)>("zmq_connect")(handle, name.c_str());
            }
        }
    }

    /// Does not change the queue size of a socket in use. libzmq 4.3.4 may crash if the size is set while a peer
    /// disconnects, even to an invalid size.
    std::intptr_t setOption() const {
        const bool isNumber = call.data != nullptr && call.size == sizeof(int);
        const int number = isNumber ? *static_cast<const int*>(call.data) : 0;
        const std::string text = isNumber ? std::to_string(number) : "none";
        return make(" " + std::to_string(call.number) + " = " + text,
                    [&] {
                        const bool isQueue = call.number == ZMQ_SNDHWM || call.number == ZMQ_RCVHWM;
                        if (!isQueue || !isInUse()) {
                            return real();
                        }
                        errno = EINVAL;
                        return std::intptr_t{number < 0 ? -1 : 0};
                    })
            .result;
    }

    bool isInUse() const {
        const Boundary::NativeSocket& found = boundary.sockets.at(call.object);
        return found.isConnected || !found.bound.empty();
    }

    std::string transfer() const {
        return " " + std::to_string(call.size) + " bytes, flags " + std::to_string(call.flags);
    }

    std::intptr_t send() const {
        Event& event = make(transfer(), [&] {
            hearPeers();
            call.flags |= ZMQ_DONTWAIT;
            const std::intptr_t result = real();
            if (result < 0 && errno == EAGAIN) {
                errno = EINTR;
            }
            return result;
        });
        event.bytes.assign(static_cast<const char*>(call.data), call.size);
        if (event.result >= 0) {
            boundary.sent.push_back(event.bytes);
        }
        return event.result;
    }

    /// Makes ZeroMQ handle its peers' commands, such as subscriptions. A query of the events does so.
    void hearPeers() const {
        int ignored = 0;
        std::size_t length = sizeof ignored;
        zmq_getsockopt(call.object, ZMQ_EVENTS, &ignored, &length);
    }

    std::intptr_t receive() const {
        Event& event = make(transfer(), [&] {
            call.flags |= ZMQ_DONTWAIT;
            return real();
        });
        if (event.result >= 0) {
            const auto length = static_cast<std::size_t>(event.result);
            event.bytes.assign(static_cast<const char*>(call.data), std::min(call.size, length));
            require(wasSent(event.bytes, length), "a message is received that nobody has sent");
        }
        return event.result;
    }

    bool wasSent(const std::string& beginning, std::size_t length) const {
        return std::any_of(boundary.sent.begin(), boundary.sent.end(), [&](const std::string& message) {
            return message.size() == length && message.compare(0, beginning.size(), beginning) == 0;
        });
    }

    std::intptr_t poll() const {
        const zmq_pollitem_t& item = *call.items;
        require(call.size == 1 && item.fd == 0 && item.revents == 0, "another poll than of one fresh item");
        const std::string arguments = " " + std::to_string(item.events) + ", " + std::to_string(call.number) + " ms";
        if (boundary.current.error == 0 && faultIsDue()) {
            Event& event = add(arguments);
            event.isInjected = true;
            return event.result = 1;
        }
        Event& event = make(arguments, [&] {
            call.number = 0;
            return real();
        });
        event.value = item.revents;
        return event.result;
    }

    std::intptr_t readClock() const {
        add("").value = boundary.clock;
        const std::chrono::microseconds now(boundary.clock);
        const auto seconds = std::chrono::duration_cast<std::chrono::duration<time_t>>(now);
        const auto rest = std::chrono::duration_cast<std::chrono::duration<suseconds_t, std::micro>>(now - seconds);
        *static_cast<timeval*>(call.object) = {seconds.count(), rest.count()};
        errno = leftover;
        return 0;
    }

    std::intptr_t pause() const {
        const auto microseconds = static_cast<useconds_t>(call.number);
        add(" " + std::to_string(microseconds));
        boundary.clock += microseconds;
        errno = leftover;
        return 0;
    }
};

Boundary::Boundary() : identity(++countOfBoundaries) {}

Boundary::~Boundary() {
    require(sockets.empty(), "a native socket is left open");
}

std::vector<Event> Boundary::eventsOf(const std::function<void()>& operation) {
    calls = 0;
    current = std::exchange(next, {});
    watching = this;
    operation();
    watching = nullptr;
    return std::exchange(events, {});
}

std::intptr_t perform(Call& call, const Real& real) {
    return watching != nullptr ? Calls{*watching, call, real}.answer() : real();
}

void log(const char* level, const std::string& text, void (* /*write*/)(const std::string&)) {
    if (watching != nullptr) {
        watching->add(std::string(level) + ": " + text);
    }
}

} // namespace rk::tests
