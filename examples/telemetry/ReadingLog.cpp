#include "ReadingLog.h"

#include <stdexcept>
#include <string>

namespace telemetry {

void ReadingLog::add(const Reading& reading) {
    const std::lock_guard<std::mutex> lock(mutex);
    // A subscriber that joins late misses the first readings. After that, the sequence has no gaps.
    if (total.received == 0) {
        total.first = reading.sequence();
    } else if (reading.sequence() != total.last + 1) {
        ++total.gaps;
    }
    ++total.received;
    total.last = reading.sequence();
    latest = reading;
    added.notify_all();
}

Reading ReadingLog::waitFor(const std::function<bool(const Reading&)>& wanted, std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex);
    while (total.received == 0 || !wanted(latest)) {
        if (!waitForAnother(lock, patience)) {
            throw std::runtime_error("no reading for " + std::to_string(patience.count()) + " ms");
        }
    }
    return latest;
}

bool ReadingLog::staysSilent(std::chrono::milliseconds duration) {
    std::unique_lock<std::mutex> lock(mutex);
    return !waitForAnother(lock, duration);
}

bool ReadingLog::waitForAnother(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience) {
    const std::uint64_t known = total.received;
    return added.wait_for(lock, patience, [this, known] { return total.received != known; });
}

ReadingLog::Counts ReadingLog::counts() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return total;
}

} // namespace telemetry
