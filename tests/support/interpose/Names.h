#pragma once

#include <ifaddrs.h>

namespace rk::tests {

/// The interfaces that the library has received last. A test may change them before the library reads them.
ifaddrs* latestInterfaces();

} // namespace rk::tests
