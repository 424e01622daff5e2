#pragma once

#include <string>

namespace rk::tests {

/// Writes the table of sites, errors and outcomes. Each line of `rows` reads operation|function|error|phase|outcome.
void writeTable(const std::string& file, const std::string& rows);

} // namespace rk::tests
