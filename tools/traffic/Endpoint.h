#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <string>

namespace rk::tools {

/// The endpoint, as the library reads it. Refuses besides what cannot be meant: a TCP port that the library would cut
/// to another one, and inproc, which leads to no other process. Throws std::runtime_error with the reason.
rk::socket::SocketEndpoint endpointFromText(const std::string& text);

} // namespace rk::tools
