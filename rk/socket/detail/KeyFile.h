#pragma once

#include <rk/socket/Security.h>

#include <string>

namespace rk::socket::detail {

/// Whether `text` is a key in ZeroMQ's printable encoding. Each key has exactly one such text.
bool isKey(const std::string& text);

/// Whether `keys` holds two keys that belong together. False also if ZeroMQ has no CURVE.
bool isPair(const Security::KeyPair& keys);

/// Reads a key pair as `Security::readKeyFile` does.
Security::KeyPair readKeyFile(const std::string& path);

/// Writes a key pair as `Security::writeKeyFile` does.
void writeKeyFile(const Security::KeyPair& keys, const std::string& path);

} // namespace rk::socket::detail
