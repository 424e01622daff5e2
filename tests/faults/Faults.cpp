#include "Faults.h"

#include "Immortal.h"
#include "Sites.h"

#include <algorithm>
#include <memory>

namespace rk::tests {

namespace {

/// Of all threads. The main thread's comes first.
std::vector<Operation*>& operations() {
    return immortal<std::vector<Operation*>>();
}
std::mutex operationsMutex;

/// Never destroyed: calls are made until the process is gone.
Operation& current() {
    thread_local Operation* const operation = [] {
        const std::lock_guard<std::mutex> lock(operationsMutex);
        return operations().emplace_back(std::make_unique<Operation>().release());
    }();
    return *operation;
}

thread_local bool unwatched = false;

} // namespace

Faults& Faults::instance() {
    return immortal<Faults>();
}

Operation& Faults::operation() {
    return current();
}

std::vector<Strike> Faults::takeStrikesOfOthers() {
    const std::lock_guard<std::mutex> lock(operationsMutex);
    std::vector<Strike> strikes;
    for (Operation* const each : operations()) {
        if (each != &current()) {
            strikes.insert(strikes.end(), each->strikes.begin(), each->strikes.end());
            *each = {};
        }
    }
    return strikes;
}

bool Faults::struckOthers() {
    const std::lock_guard<std::mutex> lock(operationsMutex);
    return std::any_of(operations().begin(), operations().end(),
                       [](Operation* operation) { return operation != &current() && !operation->strikes.empty(); });
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

std::optional<int> Faults::due(int site, std::string_view function, int option) {
    if (!watching || unwatched) {
        return std::nullopt;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (site == Sites::unlisted) {
        unlisted = true;
        return std::nullopt;
    }
    const int nth = ++counts[site];
    seen.push_back({site, nth, function, option, !current().strikes.empty(), strikes > 0});
    const std::optional<Failure> failure = dueLocked(site, nth, function);
    if (!failure) {
        return std::nullopt;
    }
    ++strikes;
    current().strikes.push_back({site, function, option, failure->error, failure->lasting, current().progress});
    return failure->error;
}

bool Faults::isLasting(std::string_view function) {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(lasting.begin(), lasting.end(), [&](const auto& fault) { return fault.function == function; });
}

std::optional<Faults::Failure> Faults::dueLocked(int site, int nth, std::string_view function) {
    for (const Fault& fault : armed) {
        if (fault.site == site && fault.nth == nth) {
            if (fault.lasting) {
                lasting.push_back({function, fault.error});
            }
            return Failure{fault.error, fault.lasting};
        }
    }
    for (const Lasting& fault : lasting) {
        if (fault.function == function) {
            return Failure{fault.error, true};
        }
    }
    return std::nullopt;
}

Unwatched::Unwatched() {
    unwatched = true;
}

Unwatched::~Unwatched() {
    unwatched = false;
}

bool Unwatched::isOn() {
    return unwatched;
}

} // namespace rk::tests
