#pragma once

#include "Scenario.h"

#include <rk/socket/SocketEndpoint.h>

namespace rk::tests {

using PartyPointer = std::shared_ptr<Party>;

PartyPointer party(const std::string& name, socket::Protocol::Protocol pattern);

/// A server and its client.
struct Pair {
    explicit Pair(socket::Transport::Transport transport);

    /// Returns steps that create and connect both, perform `steps`, and destroy both.
    std::vector<Step> with(const std::vector<Step>& steps) const;

    const socket::SocketEndpoint endpoint;
    const PartyPointer server = party("the one who answers", socket::Protocol::Rep);
    const PartyPointer client = party("the one who asks", socket::Protocol::Req);
};

// The steps of most scenarios.
Step construct(const PartyPointer& party);
Step create(const PartyPointer& party);
Step connect(const PartyPointer& party, const socket::SocketEndpoint& endpoint, unsigned int timeout);
Step createAndConnect(const PartyPointer& party, const socket::SocketEndpoint& endpoint, unsigned int timeout);
Step send(const PartyPointer& party, const std::string& text);
Step receive(const PartyPointer& party, const std::string& text);
Step close(const PartyPointer& party);
Step destroy(const PartyPointer& party);

Step poll(const PartyPointer& party, unsigned int timeout, socket::PollResult::PollResult result);
Step flush(const PartyPointer& party);
Step setInternalFifoSize(const PartyPointer& party);

/// Any other operation. It throws `Wrong` if the result is wrong.
Step call(const std::string& operation, const PartyPointer& party, std::function<void()> run);

/// Returns the step with an exception as its outcome.
Step throwing(Step step, const std::string& text);
/// Expects the step to throw an exception of another type than std::runtime_error.
Step refused(Step step, const std::string& type, const std::string& text);
/// Returns the step with an expired receive timeout as its outcome.
Step timingOut(Step step);
/// Returns the step with the repair of a jammed socket in its outcome.
Step jammed(Step step, const socket::SocketEndpoint& endpoint);

/// Returns the lines that `connect` logs.
std::vector<std::string> linesOfConnect(const Party& party, const socket::SocketEndpoint& endpoint);

void require(bool condition, const std::string& text);

} // namespace rk::tests
