#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace rk::tests::soak {

/// Takes the library's log lines instead of its backend: what it repairs, and when a socket is connected again.
class LogWatch {
public:
    /// The watch of the process. It is never destroyed: the library still logs while static objects are.
    static LogWatch& ofProcess();

    void note(const std::string& line);

    std::uint64_t repairs() const;

    /// How often the socket of that name has been connected.
    std::uint64_t connections(const std::string& socketName) const;

    /// Waits until `connections` is above `count`; false when that takes too long.
    bool waitForConnection(const std::string& socketName, std::uint64_t count) const;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::map<std::string, std::uint64_t> connected;
    std::uint64_t repairCount = 0;
};

} // namespace rk::tests::soak
