#include "ScenarioList.h"

namespace rk::tests {

std::vector<Scenario> listenerScenarios() {
    return {};
}

} // namespace rk::tests
