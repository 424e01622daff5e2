#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace rk::tools::documents {

/// What bash reads to complete the tool's command lines.
std::string bashCompletion(const CLI::App& app);

} // namespace rk::tools::documents
