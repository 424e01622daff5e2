#pragma once

#include <rk/Export.h>

#include <string>

/// \file
/// The three functions with which the library logs.
///
/// By default a line goes to the spdlog logger named "rk" if the application has registered one. Otherwise it goes to
/// standard error, with time stamp and level. To log elsewhere, define these three functions in the executable: the
/// library then calls yours. They must not throw, and must preserve `errno`.
///
/// The functions throw nothing and preserve `errno`. They block as long as the logger takes to write a line. Any thread
/// may call them at any time, even while static objects are destroyed at process exit. One exception: if the
/// application also uses spdlog, the library's first line must not come after spdlog has shut down.

namespace rk::utils {

/// Logs progress: connections, process exit, statistics.
RK_SOCKET_EXPORT void logDebug(const std::string& text);

/// Logs repairs, silence, refused clients, and the failure of the thread that checks keys.
RK_SOCKET_EXPORT void logWarning(const std::string& text);

/// Logs an error with no caller to throw it to.
RK_SOCKET_EXPORT void logError(const std::string& text);

} // namespace rk::utils
