#pragma once

#include <ifaddrs.h>

namespace rk::tests {

/// The interfaces that the library was given last. A test may change them before the library sees them.
ifaddrs* latestInterfaces();

} // namespace rk::tests
