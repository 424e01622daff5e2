#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

namespace rk::tools {

/// Lays out what --help and --help-all print, in 80 columns. Uses what all releases of CLI11 have in common.
class Formatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
};

struct Example {
    std::string purpose;
    std::string command;
};

/// Ends the help of `command` with the units that its values may have, and with examples.
void addExamples(CLI::App& command, const std::vector<Example>& examples);

} // namespace rk::tools
