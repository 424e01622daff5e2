#pragma once

#include <rk/Export.h>

#include <string>

/// \file
/// The three calls that write a log line, one for each level.
///
/// The lines go to the spdlog logger named "rk" if the application has registered one, else to standard error with time
/// stamp and level. An application that logs in its own way defines these three functions itself, in its executable:
/// the library then calls those. They must not throw, and must leave `errno` as they found it.
///
/// Any thread may call them at any time, also while static objects are destroyed at process exit, but for one case:
/// where the application uses spdlog too, the library's first line must not come after spdlog's own end. They throw
/// nothing and keep `errno`. They block only as long as the logger at hand takes to write a line.

namespace rk::utils {

/// Progress of connections, of the shutdown, and throughput.
RK_SOCKET_EXPORT void logDebug(const std::string& text);

/// Something was repaired.
RK_SOCKET_EXPORT void logWarning(const std::string& text);

/// A failure that can be thrown to nobody.
RK_SOCKET_EXPORT void logError(const std::string& text);

} // namespace rk::utils
