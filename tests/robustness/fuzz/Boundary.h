#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace rk::tests {

/// A call that the library made, or a line that it logged.
struct Event {
    std::string line;        ///< "#2 zmq_bind tcp://*:1" with the number of the native socket, "debug: Connected ..."
    int result = 0;          ///< for `zmq_socket`, the number of the new native socket
    int error = 0;           ///< ZeroMQ's error number if the call failed
    bool isInjected = false; ///< whether the failure or odd success was injected
    std::string bytes = {};  ///< the message of a send or receive
    std::int64_t value = 0;  ///< the time in microseconds, or the events of a poll
};

/// Lets `times` calls of the library fail, beginning with the `from`th that can. Error 0 makes a poll report one ready
/// socket without events, and does not affect other calls.
struct Fault {
    unsigned int from = 0;
    unsigned int times = 0;
    int error = 0;
};

/// Intercepts the library's calls on the thread that created it. Checks that each native socket is used only while it
/// is open, and closed exactly once.
///
/// The calls reach ZeroMQ, but over inproc, where messages arrive at once. No call waits: a send that would block is
/// interrupted, and a receive or poll times out. The clock only advances in pauses.
class Boundary {
public:
    Boundary();
    ~Boundary();
    Boundary(const Boundary&) = delete;
    Boundary& operator=(const Boundary&) = delete;

    /// Runs `operation` of the library and returns its calls and log lines.
    std::vector<Event> eventsOf(const std::function<void()>& operation);

    /// Injects a fault into the next operation only.
    void injectNext(const Fault& fault) { next = fault; }

    Event& add(const std::string& line) { return events.emplace_back(Event{line}); }

    void moveClock(std::int64_t microseconds) { clock = std::max<std::int64_t>(0, clock + microseconds); }

private:
    friend struct Calls;

    struct NativeSocket {
        int number;
        bool isConnected; ///< to a bound name
        std::set<std::string> bound;
        std::set<std::string> waitsFor; ///< names to connect to once they are bound
    };

    const unsigned long identity;
    std::vector<Event> events;
    std::map<void*, NativeSocket> sockets;
    std::vector<std::string> sent;
    int socketsMade = 0;
    unsigned int calls = 0;
    Fault next;
    Fault current;
    std::int64_t clock = 1000000000000000;
};

} // namespace rk::tests
