#pragma once

#include <chrono>
#include <string>

namespace rk::tools {

/// Reads "500ms", "2s", "1.5min", "20us" or, in seconds, "2". Throws std::runtime_error with the reason.
std::chrono::nanoseconds durationFromText(const std::string& text);

} // namespace rk::tools
