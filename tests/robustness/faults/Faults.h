#pragma once

#include "support/interpose/Interpose.h"

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace rk::tests {

/// What is to fail: a call from a site, and from then on every call of that function if `lasting`.
struct Fault {
    int site;
    int nth;
    int error;
    bool lasting;
};

/// How far an operation had come.
struct Progress {
    bool warned = false;   ///< the warning before a rebuild was logged
    bool received = false; ///< a message was taken
    bool logging = false;  ///< a line was being logged
};

/// A fault that struck.
struct Strike {
    int site;
    Function function;
    int option; ///< of `zmq_setsockopt`
    int error;
    Progress progress;
};

/// A call from a site, as it was seen.
struct SeenCall {
    int site;
    int nth;
    Function function;
    int option; ///< of `zmq_setsockopt`
    bool inStruckOperation;
    bool afterStrike;
    std::size_t path; ///< of its operation, up to this call
};

/// Every thread's operation is its own.
struct Operation {
    Progress progress;
    std::vector<Strike> strikes;
    std::vector<std::string> lines; ///< that were logged: "error: Something failed"
    std::size_t path = 0;           ///< a hash of what it is, of the sites that it has passed, and of their errors
};

/// Which calls fail. While nobody watches, none does, and none is noted.
class Faults {
public:
    static Faults& instance();

    void arm(const std::vector<Fault>& faults);
    void disarm();

    /// Called for every call from a site: the error that it is to fail with.
    std::optional<int> due(int site, Function function, int option);

    /// The calling thread's.
    static Operation& operation();
    /// What the other threads did. It is forgotten.
    static Operation takeOperationOfOthers();
    static bool struckOthers();

    const std::vector<SeenCall>& calls() const { return seen; }
    bool struck() const { return strikes > 0; }
    /// Whether every call of `function` fails from now on.
    bool isLasting(Function function);
    bool sawUnlisted() const { return unlisted; }

    void addLine(const std::string& line);
    /// All lines, of all threads.
    const std::vector<std::string>& lines() const { return everyLine; }

    std::atomic<bool> watching{false};
    /// Whether a listener has, by a fault, no socket to serve.
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

/// While it lives, the calling thread's calls count for nothing.
class Unwatched {
public:
    Unwatched();
    ~Unwatched();
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

    static bool isOn();
};

} // namespace rk::tests
