#pragma once

#include "Cell.h"

#include <string>

namespace rk::benchmarks {

/// The URL of an address on a cell's transport: an address is a port, a path, or a name.
inline std::string urlOf(const Cell& cell, const std::string& address) {
    return cell.transport == "tcp" ? "tcp://127.0.0.1:" + address : cell.transport + "://" + address;
}

} // namespace rk::benchmarks
