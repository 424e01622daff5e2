#include "endurance/soak/LogWatch.h"

#include "endurance/soak/Lane.h"
#include "support/Immortal.h"

#include <rk/utils/Log.h>

namespace rk::tests::soak {

void LogWatch::note(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex);
    ++lines[line];
    changed.notify_all();
}

std::uint64_t LogWatch::repairs() {
    const std::lock_guard<std::mutex> lock(mutex);
    std::uint64_t sum = 0;
    for (const auto& [line, count] : lines) {
        if (line.find("Attempting reset of the connections") != std::string::npos) {
            sum += count;
        }
    }
    return sum;
}

std::uint64_t LogWatch::connections(const std::string& socketName) {
    const std::lock_guard<std::mutex> lock(mutex);
    return lines["Connected [Socket " + socketName + "]"];
}

bool LogWatch::waitForConnection(const std::string& socketName, std::uint64_t count) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, patience, [&] { return lines["Connected [Socket " + socketName + "]"] > count; });
}

} // namespace rk::tests::soak

// Replaces the library's logging functions.
namespace rk::utils {

void logDebug(const std::string& message) {
    rk::tests::immortal<rk::tests::soak::LogWatch>().note(message);
}

void logWarning(const std::string& message) {
    rk::tests::immortal<rk::tests::soak::LogWatch>().note(message);
}

void logError(const std::string& /*message*/) {
    // Handlers fail on purpose. Any other error is reported as a breach.
}

} // namespace rk::utils
