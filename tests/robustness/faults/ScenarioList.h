#pragma once

#include "Scenario.h"

namespace rk::tests {

// The scenarios, by topic.
std::vector<Scenario> exchangeScenarios();
std::vector<Scenario> repairScenarios();
std::vector<Scenario> securityScenarios();
std::vector<Scenario> tuningScenarios();
std::vector<Scenario> valueScenarios();
std::vector<Scenario> listenerScenarios();

} // namespace rk::tests
