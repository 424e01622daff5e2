#pragma once

#include "Journal.h"

#include <functional>
#include <limits>
#include <string>
#include <variant>

namespace rk::tests {

/// Stands between the library and the functions that it calls: 0MQ's, the platform's and the three logging calls.
///
/// The test executable defines these functions itself. A call that comes from the library is written into the journal,
/// fails if the test has asked for it, and otherwise goes on to the real function; a call from anywhere else goes there
/// at once. Log lines are written into the journal alone.
///
/// A test makes one StandIn, which starts with an empty journal and no faults, and leaves none behind.
class StandIn {
public:
    static constexpr int always = std::numeric_limits<int>::max();

    StandIn();
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    Journal& journal();

    /// Makes the `nth` of the library's calls of `function` from now on, and the `times` - 1 that follow, fail with the
    /// given error number instead of reaching the real function. Null handles and -1 are the failing results.
    void fail(const std::string& function, int error, int nth = 1, int times = 1);

    /// What a function answers: a number, or a handle.
    using Answer = std::variant<int, void*>;

    /// Makes the library's next call of `function` return `result` and nothing else; the real function is not called.
    void answer(const std::string& function, Answer result);

    /// Runs `action` after each of the library's calls of `function`, before the library sees the result; for the
    /// logging calls `function` is "debug", "warning" or "error". An empty action ends this.
    void after(const std::string& function, std::function<void()> action);

    /// Replaces the clock that `gettimeofday` reads by one that the test sets, and lets `usleep` advance it by the
    /// pause instead of waiting.
    void setClock(double seconds);
};

/// While it lives, no poll of the library waits: where nothing is ready, it ends as if its time had run out.
class PollsRunOut {
public:
    PollsRunOut();
    ~PollsRunOut();
    PollsRunOut(const PollsRunOut&) = delete;
    PollsRunOut& operator=(const PollsRunOut&) = delete;
};

} // namespace rk::tests
