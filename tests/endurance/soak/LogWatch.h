#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace rk::tests::soak {

/// Counts the library's log lines below error level. Any thread may call it.
class LogWatch {
public:
    /// Returns the watch of the process. It is never destroyed, because the library logs during static destruction.
    static LogWatch& ofProcess();

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
