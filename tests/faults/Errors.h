#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rk::tests {

/// The errors that a function's documentation names: its manual page, or POSIX.
const std::vector<int>& errorsOf(std::string_view function);

/// "EINTR", for tables.
std::string nameOf(int error);

} // namespace rk::tests
