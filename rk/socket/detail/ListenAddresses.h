#pragma once

#include <string>
#include <vector>

namespace rk::socket::detail {

/// Whether `host` is an IPv4 address.
bool isIpv4Address(const std::string& host);

/// Whether `host` is an IPv6 address, with or without brackets and zone.
bool isIpv6Address(const std::string& host);

/// Returns the numeric addresses, as ZeroMQ takes them, on which a socket listens for `host`: an address, an interface,
/// a name, or "*" for all interfaces.
///
/// ZeroMQ itself takes one address of an interface, and no names. With IPv6 on, it takes no IPv4 address of an interface.
/// \throws std::runtime_error with the reason if there is no address
std::vector<std::string> listenAddresses(const std::string& host, bool ipv6);

} // namespace rk::socket::detail
