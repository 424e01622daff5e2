#pragma once

#include <string>
#include <vector>

namespace rk::socket::detail {

/// Returns whether `host` is an IPv4 address.
bool isIpv4Address(const std::string& host);

/// Returns whether `host` is an IPv6 address, with or without brackets and zone.
bool isIpv6Address(const std::string& host);

/// Returns the numeric addresses, in ZeroMQ's notation, on which a socket listens for `host`: an address, an interface,
/// a name, or "*" for all interfaces.
///
/// ZeroMQ itself uses only one address of an interface, no IPv4 address of it if IPv6 is on, and resolves no names.
/// \throws std::runtime_error with the reason if there is no address
std::vector<std::string> listenAddresses(const std::string& host, bool ipv6);

} // namespace rk::socket::detail
