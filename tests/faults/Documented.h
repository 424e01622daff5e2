#pragma once

#include "Scenario.h"

namespace rk::tests {

/// The outcomes that the documentation allows for an operation in which these faults struck, in this order.
std::vector<Outcome> documented(const Step& step, const std::vector<Strike>& strikes);

/// What a listener's thread logs, in warnings and errors, when these faults struck in it; and whether it ends the
/// process.
std::vector<Outcome> documentedOfThread(const Step& step, const std::vector<Strike>& strikes);

} // namespace rk::tests
