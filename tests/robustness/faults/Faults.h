#pragma once

#include "support/interpose/Interpose.h"

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace rk::tests {

/// A call from a site that fails. If `lasting`, every later call of that function fails too.
struct Fault {
    int site;
    int nth;
    int error;
    bool lasting;
};

/// The progress of an operation.
struct Progress {
    bool warned = false;   ///< the warning before a rebuild was logged
    bool received = false; ///< a message was received
    bool logging = false;  ///< a line was being logged
};

/// A fault that was injected.
struct Strike {
    int site;
    Function function;
    int option; ///< of `zmq_setsockopt`
    int error;
    Progress progress;
};

/// A call from a site that was observed.
struct SeenCall {
    int site;
    int nth;
    Function function;
    int option; ///< of `zmq_setsockopt`
    bool inStruckOperation;
    bool afterStrike;
    std::size_t path; ///< the operation's path up to this call
};

/// The operation that a thread performs. Each thread has one.
struct Operation {
    Progress progress;
    std::vector<Strike> strikes;
    std::vector<std::string> lines; ///< the logged lines, such as "error: Something failed"
    std::size_t path = 0;           ///< a hash of its name, of the sites that it has passed, and of their errors
};

/// Decides which calls fail. Injects and records nothing while it does not watch.
class Faults {
public:
    static Faults& instance();

    void arm(const std::vector<Fault>& faults);
    void disarm();

    /// Called for every call from a site. Returns the error to inject, if any.
    std::optional<int> due(int site, Function function, int option);

    /// Returns the operation of the calling thread.
    static Operation& operation();
    /// Removes and returns the operation of the other threads.
    static Operation takeOperationOfOthers();
    static bool struckOthers();

    const std::vector<SeenCall>& calls() const { return seen; }
    bool struck() const { return strikes > 0; }
    /// Returns whether every call of `function` fails from now on.
    bool isLasting(Function function);
    bool sawUnlisted() const { return unlisted; }

    void addLine(const std::string& line);
    /// Returns the lines of all threads.
    const std::vector<std::string>& lines() const { return everyLine; }

    std::atomic<bool> watching{false};
    /// Whether a fault has left a listener without a socket to serve.
    std::atomic<bool> listenerIsDeaf{false};

private:
    std::optional<int> dueLocked(int site, int nth, Function function);

    std::mutex mutex;
    std::vector<Fault> armed;
    std::map<Function, int> lasting;
    std::map<int, int> counts;
    std::vector<SeenCall> seen;
    std::atomic<int> strikes{0};
    std::vector<std::string> everyLine;
    bool unlisted = false;
};

/// Ignores the calling thread's calls during its lifetime.
class Unwatched {
public:
    Unwatched();
    ~Unwatched();
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

    static bool isOn();
};

} // namespace rk::tests
