#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rk::tests {

/// What is to fail: a call from a site, and from then on every call of that function if `lasting`.
struct Fault {
    int site;
    int nth;
    int error;
    bool lasting;
};

/// Instead of an error number: `zmq_poll` says that the socket is ready, with no event or with an unexpected one.
constexpr int readyForNothing = -1;
constexpr int readyInError = -2;

/// How far an operation had come.
struct Progress {
    bool warned = false;    ///< the warning before a rebuild was logged
    bool released = false;  ///< a native socket was closed
    bool opened = false;    ///< a native socket was made
    bool received = false;  ///< a message was taken
    bool connected = false; ///< a socket was connected
    bool attached = false;  ///< a rebuilt socket was connected again
    bool told = false;      ///< a line about a failure was logged
    bool logging = false;   ///< a line was being logged
};

/// A fault that struck.
struct Strike {
    int site;
    std::string_view function;
    int option; ///< of `zmq_setsockopt`
    int error;
    bool lasting;
    Progress progress;
};

/// A call from a site, as it was seen.
struct Call {
    int site;
    int nth;
    std::string_view function;
    int option;
    bool inStruckOperation;
    bool afterStrike;
};

/// Every thread's operation is its own.
struct Operation {
    Progress progress;
    std::vector<Strike> strikes;
};

/// Which calls fail. While nobody watches, none does, and none is noted.
class Faults {
public:
    static Faults& instance();

    void arm(const std::vector<Fault>& faults);
    void disarm();

    /// Called for every call from a site: the error that it is to fail with.
    std::optional<int> due(int site, std::string_view function, int option);

    /// The calling thread's.
    static Operation& operation();
    /// The faults that struck in other threads. They are forgotten.
    static std::vector<Strike> takeStrikesOfOthers();
    static bool struckOthers();

    const std::vector<Call>& calls() const { return seen; }
    bool struck() const { return strikes > 0; }
    /// Whether every call of `function` fails from now on.
    bool isLasting(std::string_view function);
    bool sawUnlisted() const { return unlisted; }

    std::atomic<bool> watching{false};
    /// Whether a listener has, by a fault, no socket to serve.
    std::atomic<bool> listenerIsDeaf{false};

private:
    struct Failure {
        int error;
        bool lasting;
    };
    struct Lasting {
        std::string_view function;
        int error;
    };

    std::optional<Failure> dueLocked(int site, int nth, std::string_view function);

    std::mutex mutex;
    std::vector<Fault> armed;
    std::vector<Lasting> lasting;
    std::map<int, int> counts;
    std::vector<Call> seen;
    std::atomic<int> strikes{0};
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
