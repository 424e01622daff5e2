#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace rk::tests::soak {

/// Counts the library's log lines below error level. Any thread may call it. The process has an immortal one, because the
/// library logs during static destruction.
class LogWatch {
public:
    void note(const std::string& line);

    /// Returns how many sockets the library has rebuilt.
    std::uint64_t repairs();

    /// Returns how often the socket of that name has been connected.
    std::uint64_t connections(const std::string& socketName);

    /// Waits until `connections` is above `count`. Returns false if that takes too long.
    bool waitForConnection(const std::string& socketName, std::uint64_t count);

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, std::uint64_t> lines;
};

} // namespace rk::tests::soak
