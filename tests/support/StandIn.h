#pragma once

#include "Journal.h"

#include <functional>
#include <limits>
#include <string>
#include <variant>

namespace rk::tests {

/// Intercepts the functions that the library calls: ZeroMQ's, the platform's and the three logging functions.
///
/// A test constructs one StandIn. It starts with an empty journal and no faults, and leaves no faults behind.
///
/// The test executable defines these functions itself. It records each call by the library in the journal. The call
/// then fails if the test has asked for it, and otherwise reaches the real function. Calls from elsewhere reach the
/// real function directly. Log lines are only recorded.
class StandIn {
public:
    static constexpr int always = std::numeric_limits<int>::max();

    StandIn();
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    Journal& journal();

    /// Makes the `nth` next call of `function` by the library, and the `times` - 1 after it, fail with the given error
    /// number. They return null or -1 and do not reach the real function.
    void fail(const std::string& function, int error, int nth = 1, int times = 1);

    /// The result of a function: a number or a handle.
    using Answer = std::variant<int, void*>;

    /// Makes the library's next call of `function` return `result`, without calling the real function.
    void answer(const std::string& function, Answer result);

    /// Runs `action` after each call of `function` by the library, before the library gets the result. For the logging
    /// functions `function` is "debug", "warning" or "error". An empty action switches this off.
    void after(const std::string& function, std::function<void()> action);

    /// Replaces the clock of `gettimeofday` by a clock that the test sets. `usleep` advances it instead of waiting.
    void setClock(double seconds);
};

/// Keeps the library's polls from waiting during its lifetime: if nothing is ready, they time out at once.
class PollsRunOut {
public:
    PollsRunOut();
    ~PollsRunOut();
    PollsRunOut(const PollsRunOut&) = delete;
    PollsRunOut& operator=(const PollsRunOut&) = delete;
};

} // namespace rk::tests
