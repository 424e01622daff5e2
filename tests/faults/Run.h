#pragma once

#include "Scenario.h"

#include <array>

namespace rk::tests {

/// What a child process tells its parent: memory that both share.
struct Report {
    struct SeenCall {
        int site;
        int nth;
        std::array<char, 24> function;
        bool inStruckOperation;
        bool afterStrike;
    };
    static constexpr std::size_t capacity = 20000;

    bool ended = false;  ///< in the way that it had to
    bool struck = false; ///< at least one fault
    std::array<char, 8000> failure{};
    std::array<char, 8000> rows{}; ///< of the table of outcomes
    std::array<bool, 1000> struckSites{};
    std::size_t callCount = 0;
    std::array<SeenCall, capacity> calls{};
};

/// Runs the scenario in this process, with the faults, to the process's end.
[[noreturn]] void run(const Scenario& scenario, const std::vector<Fault>& faults, Report& report);

} // namespace rk::tests
