#pragma once

#include <string>

/// \file
/// Where the log lines go while the application has not replaced the logging calls: spdlog.
///
/// Lines are written until the process is gone, when spdlog's registry of loggers may have been destroyed. Just before
/// that, the backend takes the logger that is registered, and keeps it.

namespace rk::detail {

enum class Level {
    Debug,
    Warning,
    Error
};

/// Makes the registry of loggers outlive every static object that is constructed from now on.
void prepareForExit();

/// Writes one line. Drops it on failure. Keeps `errno`.
void writeLine(Level level, const std::string& text) noexcept;

} // namespace rk::detail
