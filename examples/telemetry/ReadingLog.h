#pragma once

#include "telemetry.pb.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace telemetry {

/// What has been received: the latest reading, and whether the sequence is whole. One thread adds readings, others wait
/// for them. Every operation is safe for any thread.
class ReadingLog {
public:
    struct Counts {
        std::uint64_t received = 0;
        std::uint64_t first = 0; ///< sequence number of the first reading
        std::uint64_t last = 0;  ///< sequence number of the latest one
        std::uint64_t gaps = 0;  ///< how often a reading was not the successor of the one before
    };

    void add(const Reading& reading);

    /// Waits until the latest reading is the one that is wanted, and returns it.
    /// \throws std::runtime_error when no reading at all comes for as long as `patience`
    Reading waitFor(const std::function<bool(const Reading&)>& wanted, std::chrono::milliseconds patience);

    /// Waits as long as `duration`, or until a reading comes. True when none came.
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
