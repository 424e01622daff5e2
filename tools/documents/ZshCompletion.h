#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace rk::tools::documents {

/// What zsh reads to complete the tool's command lines.
std::string zshCompletion(const CLI::App& app);

} // namespace rk::tools::documents
