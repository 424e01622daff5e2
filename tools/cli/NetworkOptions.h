#pragma once

#include <CLI/CLI.hpp>

namespace rk::tools {

/// Adds --peer-timeout and --ipv6, and for a command whose socket `listens`, --listen-on and --max-message-size. Parsing
/// makes the settings of the process.
void addNetwork(CLI::App& command, bool listens);

} // namespace rk::tools
