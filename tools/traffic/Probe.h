#pragma once

#include "traffic/Pattern.h"

#include <chrono>
#include <optional>
#include <string>

namespace rk::tools {

class Keys;
class StopSignals;

/// What listens at an endpoint.
struct Findings {
    std::optional<std::string> trouble; ///< why it does not speak ZeroMQ with us; nothing if it does
    std::string description;            ///< "ZMTP 3.1, mechanism NULL, a PUB socket"
    std::string socketType;             ///< "PUB"; empty if the other side does not say
};

/// Connects to an endpoint, waits for what a ZeroMQ socket says of itself, and disconnects. With keys, also finds out
/// whether both sides trust each other; `keys` may be null. Waits until `limit` is over for each step.
Findings probe(const std::string& endpoint, const Keys* keys, std::chrono::milliseconds limit, const StopSignals& stop);

/// Why a socket of this pattern cannot talk to what listens at the endpoint, for people. Nothing if it can.
std::optional<std::string> troubleAt(const std::string& endpoint, Pattern pattern, const Keys* keys,
                                     const StopSignals& stop);

} // namespace rk::tools
