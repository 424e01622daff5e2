#pragma once

#include "Scenario.h"

#include <array>

namespace rk::tests {

/// The report of a child process, in memory that it shares with its parent.
struct Report {
    static constexpr std::size_t capacity = 20000;

    bool ended = false;  ///< as expected
    bool struck = false; ///< at least one fault
    std::array<char, 8000> failure{};
    std::array<char, 100000> rows{}; ///< operation|outcome|cause|error
    std::array<bool, 1000> struckSites{};
    std::size_t callCount = 0;
    std::array<SeenCall, capacity> calls; ///< the first `callCount` of them
};

/// Runs the scenario with the faults in this process, and ends the process.
[[noreturn]] void run(const Scenario& scenario, const std::vector<Fault>& faults, Report& report);

} // namespace rk::tests
