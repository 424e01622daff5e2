#pragma once

#include "Description.h"

#include <string>

namespace rk::tools::documents {

/// The manual page, for man(1).
std::string manPage(const Description& program);

} // namespace rk::tools::documents
