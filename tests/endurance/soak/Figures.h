#pragma once

#include <atomic>
#include <cstdint>
#include <iostream>
#include <mutex>
#include <string>

namespace rk::tests::soak {

/// Counts the events of all lanes, and reports broken promises. Any thread may call it.
class Figures {
public:
    std::atomic<std::uint64_t> exchanges{0};  ///< requests whose reply has arrived
    std::atomic<std::uint64_t> published{0};  ///< messages of feeds, all of them received
    std::atomic<std::uint64_t> deliveries{0}; ///< requests that their close policy has delivered after the close
    std::atomic<std::uint64_t> repeats{0};    ///< requests sent again because a repair had lost them
    std::atomic<std::uint64_t> jams{0};       ///< calls made out of turn
    std::atomic<std::uint64_t> restarts{0};   ///< of listeners and publishers
    std::atomic<std::uint64_t> failures{0};   ///< of handlers

    /// Writes one line to standard output.
    void write(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex);
        std::cout << line << std::endl;
    }

    void breach(const std::string& text) { write("breach " + text); }

private:
    std::mutex mutex;
};

} // namespace rk::tests::soak
