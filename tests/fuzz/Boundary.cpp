#include "fuzz/Boundary.h"

#include "fuzz/Require.h"

#include <rk/utils/Log.h>

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace rk::tests {

namespace {

/// The boundary whose operation runs on this thread.
thread_local Boundary* watching = nullptr;

template <class Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Looked up by the first call, which may come before the constructors of this executable have run.
struct RealFunctions {
    decltype(zmq_socket)* socket = realFunction<decltype(zmq_socket)>("zmq_socket");
    decltype(zmq_close)* close = realFunction<decltype(zmq_close)>("zmq_close");
    decltype(zmq_bind)* bind = realFunction<decltype(zmq_bind)>("zmq_bind");
    decltype(zmq_connect)* connect = realFunction<decltype(zmq_connect)>("zmq_connect");
    decltype(zmq_setsockopt)* setsockopt = realFunction<decltype(zmq_setsockopt)>("zmq_setsockopt");
    decltype(zmq_send)* send = realFunction<decltype(zmq_send)>("zmq_send");
    decltype(zmq_recv)* recv = realFunction<decltype(zmq_recv)>("zmq_recv");
    decltype(zmq_poll)* poll = realFunction<decltype(zmq_poll)>("zmq_poll");
    decltype(::chmod)* chmod = realFunction<decltype(::chmod)>("chmod");
    int (*gettimeofday)(timeval*, void*) = realFunction<int(timeval*, void*)>("gettimeofday");
    decltype(::usleep)* usleep = realFunction<decltype(::usleep)>("usleep");
};

const RealFunctions& real() {
    static const RealFunctions functions;
    return functions;
}

/// A call that succeeds may leave any error number behind.
constexpr int leftover = EXDEV;

/// The inproc name that stands for an address: for TCP, the port alone counts. Each boundary has its own,
/// so that no input hears another.
std::string onInproc(const std::string& address, unsigned long boundary) {
    const std::string suffix = " of " + std::to_string(boundary);
    if (address.rfind("tcp://", 0) == 0) {
        return "inproc://tcp" + address.substr(address.rfind(':')) + suffix;
    }
    return (address.rfind("ipc://", 0) == 0 ? "inproc://" : "") + address + suffix;
}

unsigned long countOfBoundaries = 0;

} // namespace

/// The library's calls, each as the boundary answers it.
struct Calls {
    Boundary& boundary;

    Event& add(const std::string& line) {
        boundary.events.push_back({line});
        return boundary.events.back();
    }

    /// "#N " for an open socket, "#0 " for none. Every other handle is one that the library has closed.
    std::string numberOf(void* socket) const {
        if (socket == nullptr) {
            return "#0 ";
        }
        const auto found = boundary.sockets.find(socket);
        require(found != boundary.sockets.end(), "a native socket is used that is not open");
        return "#" + std::to_string(found->second.number) + " ";
    }

    bool faultIsDue() {
        const Fault& fault = boundary.current;
        ++boundary.calls;
        return boundary.calls >= fault.from && boundary.calls - fault.from < fault.times;
    }

    /// Notes a call and makes it, or fails.
    template <class Real>
    Event& make(const std::string& line, int failure, const Real& realCall) {
        Event& event = add(line);
        event.isInjected = faultIsDue() && boundary.current.error != 0;
        event.result = event.isInjected ? failure : realCall();
        if (event.result == failure) {
            event.error = event.isInjected ? boundary.current.error : errno;
        }
        errno = event.error != 0 ? event.error : leftover;
        return event;
    }

    void* socket(void* context, int type) {
        void* handle = nullptr;
        make("zmq_socket " + std::to_string(type), 0, [&] {
            handle = real().socket(context, type);
            if (handle == nullptr) {
                return 0;
            }
            boundary.sockets[handle] = {++boundary.socketsMade, false, {}, {}};
            return boundary.socketsMade;
        });
        return handle;
    }

    /// What is not sent yet is dropped: nobody would wait for it.
    int close(void* socket) {
        Event& event = add(numberOf(socket) + "zmq_close");
        event.isInjected = faultIsDue() && boundary.current.error != 0;
        const int linger = 0;
        real().setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
        boundary.sockets.erase(socket);
        event.result = real().close(socket);
        errno = event.isInjected ? boundary.current.error : leftover;
        return event.isInjected ? -1 : event.result;
    }

    int bind(void* socket, const char* address) {
        return make(numberOf(socket) + "zmq_bind " + address, -1,
                    [&] {
                        const std::string name = onInproc(address, boundary.identity);
                        const int result = real().bind(socket, name.c_str());
                        if (result == 0) {
                            boundary.sockets[socket].bound.insert(name);
                            connectWhoWaitsFor(name);
                        }
                        return result;
                    })
            .result;
    }

    int connect(void* socket, const char* address) {
        return make(numberOf(socket) + "zmq_connect " + address, -1,
                    [&] {
                        const std::string name = onInproc(address, boundary.identity);
                        if (name.rfind("inproc://", 0) != 0 || isBound(name)) {
                            boundary.sockets[socket].isConnected = true;
                            return real().connect(socket, name.c_str());
                        }
                        boundary.sockets[socket].waitsFor.insert(name);
                        return 0;
                    })
            .result;
    }

    bool isBound(const std::string& name) const {
        return std::any_of(boundary.sockets.begin(), boundary.sockets.end(),
                           [&](const auto& socket) { return socket.second.bound.count(name) != 0; });
    }

    /// 0MQ can be told to connect to an inproc name before somebody binds it; but it keeps a socket for good that was
    /// closed in between, and ends with a race of its own threads then.
    void connectWhoWaitsFor(const std::string& name) {
        for (auto& [handle, waiting] : boundary.sockets) {
            if (waiting.waitsFor.erase(name) != 0) {
                waiting.isConnected = true;
                real().connect(handle, name.c_str());
            }
        }
    }

    /// libzmq 4.3.4 may crash when the length of a queue is set while a peer goes, even to a length that it refuses: a
    /// socket in use keeps the one that it has.
    int setOption(void* socket, int option, const void* value, std::size_t length) {
        const bool isNumber = value != nullptr && length == sizeof(int);
        const int number = isNumber ? *static_cast<const int*>(value) : 0;
        const std::string text = isNumber ? std::to_string(number) : "none";
        return make(numberOf(socket) + "zmq_setsockopt " + std::to_string(option) + " = " + text, -1,
                    [&] {
                        const bool isQueue = option == ZMQ_SNDHWM || option == ZMQ_RCVHWM;
                        if (!isQueue || !isInUse(socket)) {
                            return real().setsockopt(socket, option, value, length);
                        }
                        errno = EINVAL;
                        return number < 0 ? -1 : 0;
                    })
            .result;
    }

    bool isInUse(void* socket) const {
        const Boundary::NativeSocket& found = boundary.sockets.at(socket);
        return found.isConnected || !found.bound.empty();
    }

    int send(void* socket, const void* data, std::size_t size, int flags) {
        const std::string line =
            numberOf(socket) + "zmq_send " + std::to_string(size) + " bytes, flags " + std::to_string(flags);
        Event& event = make(line, -1, [&] {
            hearPeers(socket);
            const int result = real().send(socket, data, size, flags | ZMQ_DONTWAIT);
            if (result < 0 && errno == EAGAIN) {
                errno = EINTR;
            }
            return result;
        });
        event.bytes.assign(static_cast<const char*>(data), size);
        if (event.result >= 0) {
            boundary.sent.push_back(event.bytes);
        }
        return event.result;
    }

    /// 0MQ takes note of what peers have told a socket, of a subscription for one, when it is asked for its events.
    static void hearPeers(void* socket) {
        int ignored = 0;
        std::size_t length = sizeof ignored;
        zmq_getsockopt(socket, ZMQ_EVENTS, &ignored, &length);
    }

    int receive(void* socket, void* buffer, std::size_t size, int flags) {
        const std::string line =
            numberOf(socket) + "zmq_recv " + std::to_string(size) + " bytes, flags " + std::to_string(flags);
        Event& event = make(line, -1, [&] { return real().recv(socket, buffer, size, flags | ZMQ_DONTWAIT); });
        if (event.result >= 0) {
            const auto length = static_cast<std::size_t>(event.result);
            event.bytes.assign(static_cast<const char*>(buffer), std::min(size, length));
            require(wasSent(event.bytes, length), "a message is received that nobody has sent");
        }
        return event.result;
    }

    bool wasSent(const std::string& beginning, std::size_t length) const {
        return std::any_of(boundary.sent.begin(), boundary.sent.end(), [&](const std::string& message) {
            return message.size() == length && message.compare(0, beginning.size(), beginning) == 0;
        });
    }

    int poll(zmq_pollitem_t* items, int count, long timeout) {
        require(count == 1 && items->fd == 0 && items->revents == 0, "another poll than of one fresh item");
        const std::string line = numberOf(items->socket) + "zmq_poll " + std::to_string(items->events) + ", " +
                                 std::to_string(timeout) + " ms";
        if (boundary.current.error == 0 && faultIsDue()) {
            Event& event = add(line);
            event.isInjected = true;
            return event.result = 1;
        }
        Event& event = make(line, -1, [&] { return real().poll(items, count, 0); });
        event.value = items->revents;
        return event.result;
    }

    int changeMode(const char* path, mode_t mode) {
        return make("chmod " + std::string(path) + " " + std::to_string(mode), -1, [] { return 0; }).result;
    }

    int readClock(timeval* now) {
        Event& event = add("gettimeofday");
        event.value = boundary.clock;
        now->tv_sec = boundary.clock / 1000000;
        now->tv_usec = boundary.clock % 1000000;
        errno = leftover;
        return 0;
    }

    int pause(useconds_t time) {
        add("usleep " + std::to_string(time));
        boundary.clock += time;
        errno = leftover;
        return 0;
    }
};

Boundary::Boundary() : identity(++countOfBoundaries) {}

Boundary::~Boundary() {
    require(sockets.empty(), "a native socket is left open");
}

Boundary::Watch::Watch(Boundary& boundary) : watched(boundary) {
    watched.events.clear();
    watched.calls = 0;
    watched.current = std::exchange(watched.next, {});
    watching = &watched;
}

Boundary::Watch::~Watch() {
    watching = nullptr;
}

namespace {

void log(const char* level, const std::string& text) {
    if (watching != nullptr) {
        Calls{*watching}.add(std::string(level) + ": " + text);
    }
}

} // namespace

} // namespace rk::tests

namespace rk::utils {

void logDebug(const std::string& text) {
    tests::log("debug", text);
}

void logWarning(const std::string& text) {
    tests::log("warning", text);
}

void logError(const std::string& text) {
    tests::log("error", text);
}

} // namespace rk::utils

using namespace rk::tests;

extern "C" {

void* zmq_socket(void* context, int type) {
    return watching != nullptr ? Calls{*watching}.socket(context, type) : real().socket(context, type);
}

int zmq_close(void* socket) {
    return watching != nullptr ? Calls{*watching}.close(socket) : real().close(socket);
}

int zmq_bind(void* socket, const char* address) {
    return watching != nullptr ? Calls{*watching}.bind(socket, address) : real().bind(socket, address);
}

int zmq_connect(void* socket, const char* address) {
    return watching != nullptr ? Calls{*watching}.connect(socket, address) : real().connect(socket, address);
}

int zmq_setsockopt(void* socket, int option, const void* value, size_t length) {
    return watching != nullptr ? Calls{*watching}.setOption(socket, option, value, length)
                               : real().setsockopt(socket, option, value, length);
}

int zmq_send(void* socket, const void* data, size_t size, int flags) {
    return watching != nullptr ? Calls{*watching}.send(socket, data, size, flags)
                               : real().send(socket, data, size, flags);
}

int zmq_recv(void* socket, void* buffer, size_t size, int flags) {
    return watching != nullptr ? Calls{*watching}.receive(socket, buffer, size, flags)
                               : real().recv(socket, buffer, size, flags);
}

int zmq_poll(zmq_pollitem_t* items, int count, long timeout) {
    return watching != nullptr ? Calls{*watching}.poll(items, count, timeout) : real().poll(items, count, timeout);
}

int chmod(const char* path, mode_t mode) {
    return watching != nullptr ? Calls{*watching}.changeMode(path, mode) : real().chmod(path, mode);
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) {
    return watching != nullptr ? Calls{*watching}.readClock(now) : real().gettimeofday(now, zone);
}

/// The library's pause of the bit-rate cap: noted, and not made.
int usleep(useconds_t pause) {
    return watching != nullptr ? Calls{*watching}.pause(pause) : real().usleep(pause);
}

} // extern "C"
