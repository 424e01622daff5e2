#pragma once

#include "Faults.h"

#include <rk/socket/Socket.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

using namespace socket;

/// The visible outcome of an operation.
struct Outcome {
    enum class Kind {
        Returns,
        Throws ///< throws an exception of type `type`, or returns a failure, whose type is "result"
    };

    Kind kind = Kind::Returns;
    std::string type;
    std::string text;
    std::vector<std::string> lines; ///< the warnings and errors logged
};

/// A socket of a scenario.
struct Party {
    Party(std::string socketName, socket::Protocol::Protocol socketPattern)
        : name(std::move(socketName)), pattern(socketPattern) {}

    std::string header() const { return "[Socket " + name + "]"; }

    const std::string name;
    const socket::Protocol::Protocol pattern;
    std::unique_ptr<socket::Socket> socket;
};

/// Thrown by a step whose operation returns a failure instead of throwing it.
struct Reported {
    std::string text;
};

/// Thrown by a step whose result is wrong.
struct Wrong {
    std::string text;
};

/// One call of a public operation.
struct Step {
    std::string operation; ///< its name, without arguments
    std::shared_ptr<Party> party;
    std::function<void()> run;
    Outcome normal{};                 ///< without a fault
    std::vector<std::string> debug{}; ///< the debug lines, without a fault
    std::string endpoint{};           ///< of a listener
    bool endsThread = false;          ///< ends a listener's thread, whose log is then checked
    bool endsEarly = false;           ///< a failure can end it silently, so that it must be repeated
};

struct Scenario {
    std::string name;
    std::function<std::vector<Step>()> steps;
    bool isShort = false; ///< pairs of faults are injected
};

// The scenarios, by topic.
std::vector<Scenario> exchangeScenarios();
std::vector<Scenario> securityScenarios();
std::vector<Scenario> tuningScenarios();
std::vector<Scenario> valueScenarios();
std::vector<Scenario> listenerScenarios();

} // namespace rk::tests
