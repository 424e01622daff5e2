#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace rk::socket::detail {

class Lines;

/// The keys of the clients and servers that this process trusts.
class TrustedKeys {
public:
    /// Trusts no key.
    TrustedKeys() = default;

    /// Reads a trusted-keys file.
    /// \throws std::runtime_error with path and line if an entry is invalid
    explicit TrustedKeys(const std::string& path);

    /// Returns whether a client with this key is admitted.
    bool admits(std::string_view key) const { return clients.count(key) > 0; }

    /// Returns the key that the server at a TCP endpoint must have, or an empty string if the file has none. A key for
    /// the port overrides one for all ports of the host. Hosts are compared as strings and not resolved.
    std::string serverKey(const SocketEndpoint& endpoint) const;

private:
    void add(std::string_view line, const Lines& lines);
    void addServer(const std::string& key, const std::string& endpoint, const Lines& lines);

    std::set<std::string, std::less<>> clients;
    std::map<std::string, std::string> servers; ///< by host and port, or host and "*"
};

} // namespace rk::socket::detail
