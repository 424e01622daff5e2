#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

/// A call that the library made, or a line that it logged.
struct Event {
    std::string line;        ///< "#2 zmq_bind tcp://*:1" with the number of the native socket, "debug: Connected ..."
    int result = 0;          ///< of `zmq_socket`, the number of the new native socket
    int error = 0;           ///< 0MQ's, when the call failed
    bool isInjected = false; ///< the failure, or the strange success, was asked for
    std::string bytes = {};  ///< what was sent or received
    std::int64_t value = 0;  ///< the clock, in microseconds; the events that a poll returned
};

/// The library's calls that fail: the `from`th of those that can, and the `times` - 1 that follow. Error 0 makes a poll
/// report one socket as ready, and no event of it; it does nothing to other calls.
struct Fault {
    unsigned int from = 0;
    unsigned int times = 0;
    int error = 0;
};

/// Stands between the library and what it calls, on the thread that made it, and keeps the ledger of native sockets:
/// each is used only while it is open, and closed exactly once.
///
/// The calls reach 0MQ. Every transport goes over inproc, where what is sent is there at once; nothing waits: a send
/// that would block is interrupted, and the time of a receive or a poll has run out. The clock stands still but for the
/// pauses.
class Boundary {
public:
    Boundary();
    ~Boundary();
    Boundary(const Boundary&) = delete;
    Boundary& operator=(const Boundary&) = delete;

    /// Runs `operation` of the library and returns what it did.
    template <class Operation>
    std::vector<Event> eventsOf(const Operation& operation) {
        const Watch watch(*this);
        operation();
        return std::move(events);
    }

    /// For the next operation alone.
    void injectNext(const Fault& fault) { next = fault; }

    Event& add(const std::string& line) { return events.emplace_back(Event{line}); }

    void moveClock(std::int64_t microseconds) { clock = std::max<std::int64_t>(0, clock + microseconds); }

private:
    friend struct Calls;

    class Watch {
    public:
        explicit Watch(Boundary& boundary);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

    private:
        Boundary& watched;
    };

    struct NativeSocket {
        int number;
        bool isConnected; ///< to somebody who is there
        std::set<std::string> bound;
        std::set<std::string> waitsFor; ///< names to which it is connected as soon as they are bound
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
