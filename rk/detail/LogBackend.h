#pragma once

#include <string>

/// \file
/// Writes the log lines to spdlog, unless the application replaces the logging functions.
///
/// Lines are written until the process ends, when spdlog's registry of loggers may have been destroyed. Just before
/// that, the backend takes the registered logger and keeps it.

namespace rk::detail {

enum class Level {
    Debug,
    Warning,
    Error
};

/// Makes the registry of loggers outlive every static object that is constructed later.
void prepareForExit();

/// Writes one line. Drops it on failure. Keeps `errno`.
void writeLine(Level level, const std::string& text) noexcept;

} // namespace rk::detail
