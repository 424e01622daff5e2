#pragma once

#include "Settings.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace rk::tools {

/// Adds the subcommands with their options to `app`; parsing writes into `settings`.
void describeInterface(CLI::App& app, Settings& settings);

/// The words that an option takes, given its long spelling; none if it takes anything.
std::vector<std::string> choicesOf(const std::string& option);

} // namespace rk::tools
