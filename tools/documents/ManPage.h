#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace rk::tools::documents {

/// The manual page, for man(1).
std::string manPage(const CLI::App& app);

} // namespace rk::tools::documents
