#pragma once

#include <ifaddrs.h>
#include <netdb.h>

namespace rk::tests {

/// Returns the interfaces that the library received last. A test may change them before the library reads them.
ifaddrs* latestInterfaces();
/// Returns the addresses of a host name that the library received last. A test may change them, too.
addrinfo* latestAddresses();

} // namespace rk::tests
