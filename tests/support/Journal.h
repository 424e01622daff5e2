#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace rk::tests {

/// What the library did, in order: a line for each call that it made and each line that it logged.
///
/// A call reads "zmq_bind tcp://*:5555", a log line "debug: Connected [Socket cmd]". StandIn.cpp says how each call is
/// written. Safe for any thread.
class Journal {
public:
    using Matcher = std::function<bool(const std::string&)>;

    void add(const std::string& line);
    void clear();

    std::vector<std::string> lines() const;

    /// The lines that begin with `prefix`, in order.
    std::vector<std::string> linesWith(const std::string& prefix) const;
    std::size_t count(const std::string& prefix) const;

    /// Waits until `times` lines begin with `prefix`. False when the time ran out.
    bool waitFor(const std::string& prefix, std::size_t times = 1,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

private:
    std::size_t countLocked(const std::string& prefix) const;

    mutable std::mutex mutex;
    mutable std::condition_variable added;
    std::vector<std::string> entries;
};

} // namespace rk::tests
