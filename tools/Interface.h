#pragma once

#include "Settings.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// \file
/// The command line, described once: the parser, the help, the manual page and the shells' completions come from here.

namespace rk::tools {

struct Example {
    std::string purpose;
    std::string command;
};

/// Adds the subcommands with their options to `app`; parsing writes into `settings`.
void describeInterface(CLI::App& app, Settings& settings);

const std::vector<Example>& examplesOf(const std::string& subcommand);

/// The words that an option takes, given its long name; none if it takes anything.
const std::vector<std::string>& choicesOf(const std::string& option);

/// The exit statuses, each with what it means.
const std::vector<std::pair<std::string, std::string>>& exitStatuses();

/// "sub ENDPOINT... [OPTION...]".
std::string synopsisOf(const CLI::App& subcommand);

/// "-n, --count N".
std::string signatureOf(const CLI::Option& option);

} // namespace rk::tools
