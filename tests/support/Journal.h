#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace rk::tests {

/// Records the library's calls and log lines, in order, one line each.
///
/// A call reads "zmq_bind tcp://*:5555", a log line "debug: Connected [Socket cmd]". StandIn.cpp defines the form of
/// each call. Any thread may use it.
class Journal {
public:
    void add(const std::string& line);
    void clear();

    std::vector<std::string> lines() const;

    /// Returns the lines that begin with `prefix`, in order.
    std::vector<std::string> linesWith(const std::string& prefix) const;
    std::size_t count(const std::string& prefix) const;

    /// Waits until `times` lines begin with `prefix`. Returns false if the time runs out.
    bool waitFor(const std::string& prefix, std::size_t times = 1,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;

private:
    std::size_t countLocked(const std::string& prefix) const;

    mutable std::mutex mutex;
    mutable std::condition_variable added;
    std::vector<std::string> entries;
};

} // namespace rk::tests
