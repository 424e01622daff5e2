#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

namespace rk::tools {

/// Lays out what --help prints: CLI11's way, without the lists of what an option needs and excludes, in 80 columns.
class Formatter : public CLI::Formatter {
public:
    Formatter();

    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_expanded(const CLI::App* command) const override;
    std::string make_footer(const CLI::App* command) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
};

struct Example {
    std::string purpose;
    std::string command;
};

/// Ends the help of `command` with the units that its values may have, and with examples.
void addExamples(CLI::App& command, const std::vector<Example>& examples);

} // namespace rk::tools
