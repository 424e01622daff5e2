#pragma once

#include "telemetry.pb.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace telemetry {

/// The latest received reading, and the gaps in the sequence. One thread adds readings and others wait for them. Any
/// thread may call the operations.
class ReadingLog {
public:
    struct Counts {
        std::uint64_t received = 0;
        std::uint64_t first = 0; ///< sequence number of the first reading
        std::uint64_t last = 0;  ///< sequence number of the latest one
        std::uint64_t gaps = 0;  ///< how often a reading did not follow its predecessor
    };

    void add(const Reading& reading);

    /// Waits until the latest reading is `wanted`, and returns it.
    /// \throws std::runtime_error if no reading arrives within `patience`
    Reading waitFor(const std::function<bool(const Reading&)>& wanted, std::chrono::milliseconds patience);

    /// Waits for `duration`, or until a reading arrives. Returns whether none arrived.
    bool staysSilent(std::chrono::milliseconds duration);

    Counts counts() const;

private:
    bool waitForAnother(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience);

    mutable std::mutex mutex;
    std::condition_variable added;
    Reading latest;
    Counts total;
};

} // namespace telemetry
