#include "Lines.h"

#include "Faults.h"
#include "Immortal.h"

#include <utility>

namespace rk::tests {

namespace {

thread_local bool isOwnThread = false;

} // namespace

Lines& Lines::instance() {
    return immortal<Lines>();
}

void Lines::begin() {
    isOwnThread = true;
}

bool Lines::isOwn() {
    return isOwnThread;
}

void Lines::add(const std::string& level, const std::string& text) {
    if (Unwatched::isOn()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    const std::string line = level + ": " + text;
    everything.push_back(line);
    (isOwnThread ? own : others).push_back(line);
}

std::vector<std::string> Lines::takeOwn() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(own, {});
}

std::vector<std::string> Lines::takeOthers() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(others, {});
}

std::vector<std::string> Lines::all() {
    const std::lock_guard<std::mutex> lock(mutex);
    return everything;
}

} // namespace rk::tests
