#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace rk::tools {

/// Writes the help: in the width of a terminal, with the examples last.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

} // namespace rk::tools
