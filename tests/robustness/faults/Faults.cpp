#include "Faults.h"

#include "Sites.h"
#include "support/Immortal.h"

#include <algorithm>
#include <memory>

namespace rk::tests {

namespace {

/// The operations of all threads. The main thread's comes first.
std::vector<Operation*>& operations() {
    return immortal<std::vector<Operation*>>();
}
std::mutex operationsMutex;

thread_local bool threadIsUnwatched = false;

std::size_t extended(std::size_t path, int step) {
    return (path ^ static_cast<std::size_t>(step)) * 0x9E3779B97F4A7C15U;
}

} // namespace

Faults& Faults::instance() {
    return immortal<Faults>();
}

Operation& Faults::operation() {
    // Never destroyed, because calls are made until the process ends.
    thread_local Operation* const current = [] {
        const std::lock_guard<std::mutex> lock(operationsMutex);
        return operations().emplace_back(std::make_unique<Operation>().release());
    }();
    return *current;
}

Operation Faults::takeOperationOfOthers() {
    const std::lock_guard<std::mutex> lock(operationsMutex);
    Operation all;
    for (Operation* const each : operations()) {
        if (each != &operation()) {
            all.strikes.insert(all.strikes.end(), each->strikes.begin(), each->strikes.end());
            all.lines.insert(all.lines.end(), each->lines.begin(), each->lines.end());
            *each = {};
        }
    }
    return all;
}

bool Faults::struckOthers() {
    const std::lock_guard<std::mutex> lock(operationsMutex);
    return std::any_of(operations().begin(), operations().end(),
                       [](Operation* each) { return each != &operation() && !each->strikes.empty(); });
}

void Faults::arm(const std::vector<Fault>& faults) {
    const std::lock_guard<std::mutex> lock(mutex);
    armed = faults;
}

void Faults::disarm() {
    const std::lock_guard<std::mutex> lock(mutex);
    armed.clear();
    lasting.clear();
}

std::optional<int> Faults::due(int site, Function function, int option) {
    if (!watching || threadIsUnwatched) {
        return std::nullopt;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (site == Sites::unlisted) {
        unlisted = true;
        return std::nullopt;
    }
    const int nth = ++counts[site];
    Operation& operation = Faults::operation();
    operation.path = extended(operation.path, site);
    seen.push_back({site, nth, function, option, !operation.strikes.empty(), strikes > 0, operation.path});
    const std::optional<int> error = dueLocked(site, nth, function);
    if (error) {
        ++strikes;
        operation.path = extended(operation.path, *error);
        operation.strikes.push_back({site, function, option, *error, operation.progress});
    }
    return error;
}

bool Faults::isLasting(Function function) {
    const std::lock_guard<std::mutex> lock(mutex);
    return lasting.count(function) != 0;
}

std::optional<int> Faults::dueLocked(int site, int nth, Function function) {
    for (const Fault& fault : armed) {
        if (fault.site == site && fault.nth == nth) {
            if (fault.lasting) {
                lasting[function] = fault.error;
            }
            return fault.error;
        }
    }
    const auto found = lasting.find(function);
    return found != lasting.end() ? std::optional<int>(found->second) : std::nullopt;
}

void Faults::addLine(const std::string& line) {
    if (!threadIsUnwatched) {
        operation().lines.push_back(line);
        const std::lock_guard<std::mutex> lock(mutex);
        everyLine.push_back(line);
    }
}

Unwatched::Unwatched() {
    threadIsUnwatched = true;
}

Unwatched::~Unwatched() {
    threadIsUnwatched = false;
}

bool Unwatched::isOn() {
    return threadIsUnwatched;
}

} // namespace rk::tests
