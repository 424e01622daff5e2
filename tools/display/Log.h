#pragma once

namespace rk::tools {

/// Writes debug lines and warnings of the library to standard error too, not only its errors.
void showLibraryLog();

} // namespace rk::tools
