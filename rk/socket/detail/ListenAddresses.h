#pragma once

#include <string>
#include <vector>

namespace rk::socket::detail {

/// Returns whether `host` is an IPv4 address.
bool isIpv4Address(const std::string& host);

/// Returns whether `host` is an IPv6 address, with or without brackets and zone.
bool isIpv6Address(const std::string& host);

/// Resolves `host` into numeric addresses in ZeroMQ's notation. `host` is an address, an interface, a host name, or "*"
/// for all interfaces.
///
/// ZeroMQ's own resolution does not suffice for binding. It uses only one address of an interface, ignores the IPv4
/// addresses if IPv6 is on, and resolves no host names.
/// \throws std::runtime_error with the reason if there is no address
std::vector<std::string> listenAddresses(const std::string& host, bool ipv6);

} // namespace rk::socket::detail
