#pragma once

#include "robustness/fuzz/Boundary.h"
#include "robustness/fuzz/Require.h"

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

/// The calls and log lines of one operation, which the model checks in order.
class Script {
public:
    void begin(std::vector<Event> events, std::chrono::steady_clock::duration duration) {
        all = std::move(events);
        next = 0;
        took = duration;
    }

    /// Returns the next event, and requires it to be `line`.
    const Event& take(const std::string& line) {
        requireEqual(line, next < all.size() ? all[next].line : "nothing", "the library did something else");
        return all[next++];
    }

    bool goesOnWith(const std::string& line) const { return next < all.size() && all[next].line == line; }

    void requireEnd() const {
        requireEqual("nothing", next < all.size() ? all[next].line : "nothing", "the library did more");
    }

    std::chrono::steady_clock::duration duration() const { return took; }

private:
    std::vector<Event> all;
    std::size_t next = 0;
    std::chrono::steady_clock::duration took{};
};

/// Maps each address to the native socket of the process that holds it, or to 0 after the release. Lives as long as the
/// library's own record.
using Addresses = std::map<std::string, int>;

} // namespace rk::tests
