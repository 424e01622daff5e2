#pragma once

#include <string>

/// \file
/// Where the log lines go while the application has not replaced the logging calls: spdlog.
///
/// Log lines are written until the very end of the process, when spdlog's registry of loggers may be gone. The backend
/// therefore learns of the registry's end just before it comes, and keeps the logger that was in use, which is never
/// destroyed.

namespace rk::detail {

enum class Level {
    Debug,
    Warning,
    Error
};

/// Makes the registry of loggers outlive every static object that is constructed from now on.
void prepareForExit();

/// Writes one line; whatever goes wrong is dropped with the line, and `errno` is kept.
void writeLine(Level level, const std::string& text) noexcept;

} // namespace rk::detail
