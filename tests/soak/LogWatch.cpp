#include "soak/LogWatch.h"

#include "soak/Patience.h"

#include <rk/utils/Log.h>

#include <memory>

namespace rk::tests::soak {

namespace {

const std::string connectedPrefix = "Connected [Socket ";
const std::string repairText = " Attempting reset of the connections to preserve 0MQ state machine integrity";

bool endsWith(const std::string& line, const std::string& end) {
    return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
}

} // namespace

LogWatch& LogWatch::ofProcess() {
    static LogWatch* const watch = std::make_unique<LogWatch>().release();
    return *watch;
}

void LogWatch::note(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (line.compare(0, connectedPrefix.size(), connectedPrefix) == 0) {
        ++connected[line];
        changed.notify_all();
    } else if (endsWith(line, repairText)) {
        ++repairCount;
    }
}

std::uint64_t LogWatch::repairs() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return repairCount;
}

std::uint64_t LogWatch::connections(const std::string& socketName) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = connected.find(connectedPrefix + socketName + "]");
    return found == connected.end() ? 0 : found->second;
}

bool LogWatch::waitForConnection(const std::string& socketName, std::uint64_t count) const {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, patience, [&] {
        const auto found = connected.find(connectedPrefix + socketName + "]");
        return found != connected.end() && found->second > count;
    });
}

} // namespace rk::tests::soak

// The executable's own logging layer: the library finds these functions before its own.
namespace rk::utils {

void logDebug(const std::string& message) {
    rk::tests::soak::LogWatch::ofProcess().note(message);
}

void logWarning(const std::string& message) {
    rk::tests::soak::LogWatch::ofProcess().note(message);
}

void logError(const std::string& /*message*/) {
    // Handlers fail on purpose; what goes wrong otherwise shows as a breach.
}

} // namespace rk::utils
