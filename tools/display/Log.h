#pragma once

namespace rk::tools {

/// Lets the library's debug lines and warnings through to standard error. Its errors always get there.
void showLibraryLog();

} // namespace rk::tools
