#pragma once

#include "Faults.h"

#include <rk/socket/Socket.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

/// What an operation comes to.
struct Outcome {
    enum class Kind {
        Returns,
        Throws, ///< an exception of type `type`; or returns a failure, of type "result"
        Ends    ///< the process
    };
    /// What the object is good for afterwards.
    enum class Then {
        Retry,   ///< the same call again
        Restart, ///< open, but something is used up: from the beginning
        Reopen   ///< closed: from the beginning, with `create`
    };

    Kind kind = Kind::Returns;
    std::string type;
    std::string text;
    std::vector<std::string> lines; ///< the warnings and errors logged
    Then then = Then::Retry;
    bool deafens = false; ///< a listener runs, whose socket is closed
    bool again = false;   ///< a call that says nothing of its failure has to be made again
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
    bool counts = false;            ///< blocks, in statistics
    bool jams = false;              ///< without a fault, too, the socket is rebuilt and the call made again
    std::string endpoint{};         ///< of a listener
    bool endsThread = false;        ///< of a listener: what that has logged is looked at
};

struct Scenario {
    std::string name;
    std::function<std::vector<Step>()> steps;
    bool isShort = false; ///< two faults are tried at once
};

} // namespace rk::tests
