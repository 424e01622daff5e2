#pragma once

#include <string>

namespace rk::benchmarks {

/// An address on `transport` that nobody uses: a port for "tcp", a path for "ipc", a name for "inproc".
std::string freshAddress(const std::string& transport);

} // namespace rk::benchmarks
