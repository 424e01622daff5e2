#pragma once

#include "Scenario.h"

#include <string>
#include <vector>

namespace rk::tests {

/// What a listener's thread logs, in warnings and errors, when these faults struck in it; and whether it ends the
/// process.
std::vector<Outcome> documentedOfThread(const Step& step, const std::vector<Strike>& strikes);

/// Whether a listener's thread may log the line when more than one fault strikes in it.
bool isOfFailingThread(const Step& step, const std::string& line);

/// The same as documentedOfThread for a thread whose socket was closed before it began.
std::vector<Outcome> documentedOfDeafThread(const Step& step, const std::vector<Strike>& strikes);

} // namespace rk::tests
