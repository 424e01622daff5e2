#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

namespace rk::tools {

/// Lays out the output of --help and --help-all in 80 columns, independent of the release of CLI11.
class Formatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
};

struct Example {
    std::string purpose;
    std::string command;
};

/// Ends the help of `command` with the units of its values, notes and examples.
void endHelp(CLI::App& command, const std::vector<std::string>& notes, const std::vector<Example>& examples);

} // namespace rk::tools
