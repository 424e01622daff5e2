#pragma once

#include <rk/socket/Security.h>

#include <string>

namespace rk::socket::detail {

/// Returns whether `text` is a key in ZeroMQ's printable encoding. Each key has exactly one encoding.
bool isKey(const std::string& text);

/// Returns whether the two keys of `keys` belong together. Returns false if ZeroMQ has no CURVE.
bool isPair(const Security::KeyPair& keys);

/// Implements `Security::readKeyFile`.
Security::KeyPair readKeyFile(const std::string& path);

/// Implements `Security::writeKeyFile`.
void writeKeyFile(const Security::KeyPair& keys, const std::string& path);

} // namespace rk::socket::detail
