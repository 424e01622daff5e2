#include "Journal.h"

#include <algorithm>
#include <iterator>

namespace rk::tests {

namespace {

bool leads(const std::string& line, const std::string& prefix) {
    return line.compare(0, prefix.size(), prefix) == 0;
}

} // namespace

void Journal::add(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex);
    entries.push_back(line);
    added.notify_all();
}

void Journal::clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    entries.clear();
}

std::vector<std::string> Journal::lines() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return entries;
}

std::vector<std::string> Journal::linesWith(const std::string& prefix) const {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> found;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
                 [&](const std::string& line) { return leads(line, prefix); });
    return found;
}

std::size_t Journal::count(const std::string& prefix) const {
    const std::lock_guard<std::mutex> lock(mutex);
    return countLocked(prefix);
}

bool Journal::waitFor(const std::string& prefix, std::size_t times, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex);
    return added.wait_for(lock, timeout, [&] { return countLocked(prefix) >= times; });
}

std::size_t Journal::countLocked(const std::string& prefix) const {
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(), [&](const std::string& line) { return leads(line, prefix); }));
}

} // namespace rk::tests
