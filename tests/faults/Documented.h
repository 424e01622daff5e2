#pragma once

#include "Scenario.h"

namespace rk::tests {

/// The outcomes that the documentation allows for an operation in which these faults struck, in this order.
std::vector<Outcome> documented(const Step& step, const std::vector<Strike>& strikes);

} // namespace rk::tests
