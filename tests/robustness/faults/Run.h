#pragma once

#include "Scenario.h"

#include <array>

namespace rk::tests {

/// What a child process tells its parent: memory that both share.
struct Report {
    static constexpr std::size_t capacity = 20000;

    bool ended = false;  ///< in the way that it had to
    bool struck = false; ///< at least one fault
    std::array<char, 8000> failure{};
    std::array<char, 100000> rows{}; ///< operation|outcome|cause|error
    std::array<bool, 1000> struckSites{};
    std::size_t callCount = 0;
    std::array<SeenCall, capacity> calls; ///< the first `callCount` of them
};

/// Runs the scenario in this process, with the faults, to the process's end.
[[noreturn]] void run(const Scenario& scenario, const std::vector<Fault>& faults, Report& report);

} // namespace rk::tests
