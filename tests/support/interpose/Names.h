#pragma once

#include <ifaddrs.h>

namespace rk::tests {

/// Returns the interfaces that the library received last. A test may change them before the library reads them.
ifaddrs* latestInterfaces();

} // namespace rk::tests
