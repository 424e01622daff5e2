#pragma once

#include <zmq.h>

#include <array>
#include <string_view>

namespace rk::tools {

/// The pattern of a subcommand.
struct Pattern {
    int type = 0;                           ///< of ZeroMQ
    bool binds = false;                     ///< unless the user swaps the sides
    bool receives = false;                  ///< more than it sends
    const char* purpose = nullptr;          ///< for the log
    const char* name = nullptr;             ///< for error messages
    std::array<std::string_view, 2> others; ///< the types that it talks to
};

constexpr Pattern publishing{ZMQ_PUB, true, false, "sending to", "publisher", {"SUB", "XSUB"}};
constexpr Pattern subscribing{ZMQ_SUB, false, true, "subscribing to", "subscriber", {"PUB", "XPUB"}};
constexpr Pattern requesting{ZMQ_REQ, false, false, "sending to", "client", {"REP", "ROUTER"}};
constexpr Pattern replying{ZMQ_REP, true, true, "listening on", "server", {"REQ", "DEALER"}};
constexpr Pattern pushing{ZMQ_PUSH, true, false, "sending to", "PUSH socket", {"PULL", "PULL"}};
constexpr Pattern pulling{ZMQ_PULL, false, true, "receiving from", "PULL socket", {"PUSH", "PUSH"}};

} // namespace rk::tools
