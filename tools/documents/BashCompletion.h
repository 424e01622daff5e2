#pragma once

#include "Description.h"

#include <string>

namespace rk::tools::documents {

/// What bash reads to complete the tool's command lines.
std::string bashCompletion(const Description& program);

} // namespace rk::tools::documents
