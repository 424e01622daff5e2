#pragma once

#include "Scenario.h"

namespace rk::tests {

/// The outcomes that the documentation allows for an operation in which these faults struck, in this order.
std::vector<Outcome> documented(const Step& step, const std::vector<Strike>& strikes);

/// What a listener's thread logs, in warnings and errors, when these faults struck in it; and whether it ends the
/// process.
std::vector<Outcome> documentedOfThread(const Step& step, const std::vector<Strike>& strikes);

/// Whether a listener's thread may log the line when more than one fault strikes in it.
bool isOfFailingThread(const Step& step, const std::string& line);

/// The same for a thread whose socket was closed before it began.
std::vector<Outcome> documentedOfDeafThread(const Step& step, const std::vector<Strike>& strikes);

} // namespace rk::tests
