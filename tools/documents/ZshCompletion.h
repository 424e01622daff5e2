#pragma once

#include "Description.h"

#include <string>

namespace rk::tools::documents {

/// What zsh reads to complete the tool's command lines.
std::string zshCompletion(const Description& program);

} // namespace rk::tools::documents
