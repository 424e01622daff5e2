#pragma once

#include "soak/Figures.h"
#include "soak/ProcessUse.h"
#include "soak/Record.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rk::tests::soak {

/// How a run went.
struct Outcome {
    std::uint64_t seed = 0;
    double seconds = 0;
    ProcessUse use;
    std::vector<Growth> growth;
    std::vector<std::string> breaches;

    bool isGood() const;
};

/// One line of figures, for while it runs.
std::string liveLine(double seconds, const Figures& figures, const ProcessUse& use);

/// The verdict and what it stands on, for people.
std::string summary(const Outcome& outcome, const Figures& figures);

/// The same for programs.
std::string json(const Outcome& outcome, const Figures& figures);

} // namespace rk::tests::soak
