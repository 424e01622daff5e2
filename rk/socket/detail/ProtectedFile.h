#pragma once

#include <string>
#include <sys/types.h>

namespace rk::socket::detail {

/// Permissions that a file must not have, and the reason for the message.
struct Forbidden {
    mode_t permissions;
    const char* reason;
};

/// Reads the file at `path` into `text`. Allocates once, because growing would leave copies of secrets in memory.
///
/// The file must be regular, belong to the effective user or to root, and have none of the forbidden permissions.
/// Checks the opened file, so replacing `path` during the call does not bypass the checks. Does not block on pipes and
/// devices.
/// \throws std::runtime_error with path and reason
void readProtectedFile(const std::string& path, const Forbidden& forbidden, std::string& text);

} // namespace rk::socket::detail
