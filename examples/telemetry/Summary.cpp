#include "Summary.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>

namespace telemetry {

namespace {

/// Returns how far a counter has advanced. The kernel's wait counters may decrease slightly, and a counter that wraps
/// decreases a lot.
double advance(std::uint64_t before, std::uint64_t now) {
    return now > before ? static_cast<double>(now - before) : 0.0;
}

double busyPercent(const Reading::Core& before, const Reading::Core& now) {
    const double total = advance(before.total_ticks(), now.total_ticks());
    const double busy = advance(before.busy_ticks(), now.busy_ticks());
    return total > 0 ? std::min(100.0, busy / total * 100.0) : 0.0;
}

std::uint64_t usedMib(const Reading& reading) {
    return (reading.memory_total_kib() - std::min(reading.memory_total_kib(), reading.memory_available_kib())) / 1024;
}

} // namespace

std::string summary(const Reading& before, const Reading& now) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << "load " << now.load();
    text << "   memory " << usedMib(now) << " of " << now.memory_total_kib() / 1024 << " MiB";
    text << "   cpu" << std::setprecision(0);
    for (int core = 0; core < std::min(before.cores_size(), now.cores_size()); ++core) {
        text << " " << std::setw(3) << busyPercent(before.cores(core), now.cores(core)) << " %";
    }
    const double milliseconds = static_cast<double>(now.time_us() - before.time_us()) / 1000.0;
    if (milliseconds > 0) {
        text << "   network " << std::setprecision(1)
             << advance(before.received_bytes(), now.received_bytes()) / milliseconds << " kB/s in "
             << advance(before.sent_bytes(), now.sent_bytes()) / milliseconds << " kB/s out";
    }
    return text.str();
}

} // namespace telemetry
