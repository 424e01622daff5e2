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

/// What an operation comes to, as far as it can be seen.
struct Outcome {
    enum class Kind {
        Returns,
        Throws ///< an exception of type `type`; or returns a failure, of type "result"
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

/// Thrown by a step whose result is a failure that is returned, not thrown.
struct Reported {
    std::string text;
};

/// Thrown by a step whose result is not what it has to be.
struct Wrong {
    std::string text;
};

/// One call of a public operation.
struct Step {
    std::string operation; ///< as it is called, without arguments
    std::shared_ptr<Party> party;
    std::function<void()> run;
    Outcome normal;                 ///< without a fault
    std::vector<std::string> debug; ///< the debug lines, without a fault
    std::string endpoint{};         ///< of a listener
    bool endsThread = false;        ///< of a listener: what that has logged is looked at
    bool endsEarly = false;         ///< by a failure of which it says nothing: it has to be made again
};

struct Scenario {
    std::string name;
    std::function<std::vector<Step>()> steps;
    bool isShort = false; ///< two faults are tried at once
};

} // namespace rk::tests
