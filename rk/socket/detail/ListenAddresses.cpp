#include <rk/socket/detail/ListenAddresses.h>

#include <zmq.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>

namespace rk::socket::detail {

namespace {

using Addresses = std::vector<std::string>;

std::string withoutBrackets(const std::string& host) {
    const bool bracketed = host[0] == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

const in_addr& ipv4(const sockaddr& address) {
    return reinterpret_cast<const sockaddr_in&>(address).sin_addr;
}

const in6_addr& ipv6(const sockaddr& address) {
    return reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
}

/// Adds `address` if its family is wanted. Skips link-local addresses, which need a zone.
void add(Addresses& addresses, const sockaddr& address, bool withIpv6) {
    char text[INET6_ADDRSTRLEN];
    std::string added;
    if (address.sa_family == AF_INET) {
        added = inet_ntop(AF_INET, &ipv4(address), text, sizeof text);
    } else if (withIpv6 && address.sa_family == AF_INET6 && !IN6_IS_ADDR_LINKLOCAL(&ipv6(address))) {
        added = std::string("[") + inet_ntop(AF_INET6, &ipv6(address), text, sizeof text) + "]";
    } else {
        return;
    }
    if (std::find(addresses.begin(), addresses.end(), added) == addresses.end()) {
        addresses.push_back(added);
    }
}

/// Returns the name of the interface of an address with this label, such as "eth0" for "eth0:1".
std::string interfaceOf(const std::string& label) {
    return label.substr(0, label.find(':'));
}

/// Returns the addresses of the interface, or an empty list if there is no such interface. Throws if it has no address.
Addresses addressesOfInterface(const std::string& name, bool withIpv6) {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) {
        throw std::runtime_error(zmq_strerror(errno));
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
    Addresses addresses;
    bool exists = false;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (name == interfaceOf(entry->ifa_name)) {
            exists = true;
            if (entry->ifa_addr != nullptr) {
                add(addresses, *entry->ifa_addr, withIpv6);
            }
        }
    }
    if (exists && addresses.empty()) {
        throw std::runtime_error("the interface has no address");
    }
    return addresses;
}

Addresses addressesOfName(const std::string& name, bool withIpv6) {
    addrinfo hints{};
    hints.ai_family = withIpv6 ? AF_UNSPEC : AF_INET;
    addrinfo* first = nullptr;
    const int failure = getaddrinfo(name.c_str(), nullptr, &hints, &first);
    if (failure != 0) {
        throw std::runtime_error(std::string("no such address, interface or host name: ") +
                                 (failure == EAI_SYSTEM ? zmq_strerror(errno) : gai_strerror(failure)));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(first, freeaddrinfo);
    Addresses addresses;
    for (const addrinfo* entry = first; entry != nullptr; entry = entry->ai_next) {
        add(addresses, *entry->ai_addr, withIpv6);
    }
    if (addresses.empty()) {
        throw std::runtime_error("the host name has no address");
    }
    return addresses;
}

} // namespace

bool isIpv4Address(const std::string& host) {
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

bool isIpv6Address(const std::string& host) {
    const std::string address = withoutBrackets(host);
    in6_addr ignored{};
    return inet_pton(AF_INET6, address.substr(0, address.find('%')).c_str(), &ignored) == 1;
}

Addresses listenAddresses(const std::string& host, bool ipv6) {
    if (host == "*" || isIpv4Address(host)) {
        return {host};
    }
    if (isIpv6Address(host)) {
        if (!ipv6) {
            throw std::runtime_error("IPv6 is disabled");
        }
        return {"[" + withoutBrackets(host) + "]"};
    }
    const Addresses addresses = addressesOfInterface(host, ipv6);
    return addresses.empty() ? addressesOfName(host, ipv6) : addresses;
}

} // namespace rk::socket::detail
