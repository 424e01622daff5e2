#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace rk::tests::soak {

/// What all lanes together have done, and the promises that they have seen broken. Any thread may write and read.
class Figures {
public:
    std::atomic<std::uint64_t> exchanges{0};  ///< requests whose reply has come
    std::atomic<std::uint64_t> published{0};  ///< messages of feeds, all of them received
    std::atomic<std::uint64_t> deliveries{0}; ///< requests that their close policy has delivered after the close
    std::atomic<std::uint64_t> repeats{0};    ///< requests sent once more because a repair had lost them
    std::atomic<std::uint64_t> jams{0};       ///< calls made out of turn
    std::atomic<std::uint64_t> restarts{0};   ///< of listeners and publishers
    std::atomic<std::uint64_t> failures{0};   ///< of handlers
    std::atomic<std::uint64_t> repairs{0};    ///< sockets that the library has rebuilt, as its log tells

    void breach(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex);
        texts.push_back(text);
    }

    std::vector<std::string> breaches() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return texts;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::string> texts;
};

} // namespace rk::tests::soak
