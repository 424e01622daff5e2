#pragma once

#include "traffic/Line.h"
#include "traffic/Pattern.h"

#include <rk/socket/SocketEndpoint.h>

#include <optional>
#include <string>

namespace rk::tools {

struct Keys;

/// The socket at an endpoint.
struct Findings {
    std::optional<std::string> trouble; ///< why it cannot talk to us, if so
    std::string description;            ///< "ZMTP 3.1, mechanism NULL, a PUB socket"
    std::string socketType;             ///< "PUB", empty if unknown
};

/// Connects `line` to an endpoint, reads how the socket describes itself, and disconnects. With keys, also tests whether both
/// sides trust each other. `keys` may be null.
Findings probe(const rk::socket::SocketEndpoint& endpoint, const Keys* keys, Line line);

/// Returns why a socket of this pattern cannot talk to the other side, or nothing if it can.
std::optional<std::string> troubleOf(const Findings& findings, const Pattern& pattern);

} // namespace rk::tools
