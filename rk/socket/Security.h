#pragma once

#include <rk/Export.h>

#include <string>

/// Encrypts the TCP connections of this process, and admits only peers whose keys are trusted.
///
/// Call `enable` in `main`, before the first TCP endpoint is connected. Sockets, listeners and requesters then need no
/// change: each TCP endpoint that they connect or bind is encrypted with CURVE. IPC and inproc endpoints stay plain.
///
/// Any thread may call the functions. None of them waits for a peer. Exceptions never contain a secret key.
namespace rk::socket::Security {

/// The identity of a process, in ZeroMQ's printable encoding of 40 characters for each key.
///
/// Keep the secret key secret: with it, another process can impersonate this one. The public key may be published. Each
/// object wipes its own copy of the secret key when it is destroyed.
struct KeyPair {
    RK_SOCKET_EXPORT ~KeyPair();

    std::string publicKey; ///< 40 characters
    std::string secretKey; ///< 40 characters
};

/// Returns a new key pair from the system's random numbers.
/// \throws std::runtime_error if ZeroMQ has no CURVE
RK_SOCKET_EXPORT KeyPair generateKeyPair();

/// Writes `keys` to a new file that only its owner can read: the public key on the first line, the secret key on the
/// second. After a failure, `path` does not exist, or is still the file that existed before.
/// \throws std::invalid_argument if `keys` is not a key pair
/// \throws std::runtime_error if `path` exists, or the file cannot be written
RK_SOCKET_EXPORT void writeKeyFile(const KeyPair& keys, const std::string& path);

/// Reads a key pair from a file in the format of `writeKeyFile`. Follows symbolic links.
/// \throws std::runtime_error if the file cannot be read, is not a regular file, belongs neither to the effective user
///         nor to root, can be accessed by other users, or does not contain a key pair
RK_SOCKET_EXPORT KeyPair readKeyFile(const std::string& path);

/// Encrypts every TCP endpoint of this process from now on. Encryption cannot be disabled again.
///
/// A `Pub` or `Rep` admits the clients whose keys are in the trusted-keys file, and refuses all others. A `Sub` or
/// `Req` connects to an endpoint only if the file has a key for it, and only to the server that has this key.
///
/// To reload both files, call it again. The new keys of clients apply to their new connections. The new key pair and
/// the new keys of servers apply to endpoints that are bound or connected later. A call that throws changes nothing.
///
/// Each line of the trusted-keys file has a key, blanks, and the name of a client or the endpoint of a server. A name
/// contains no colon. An endpoint is "tcp://host:port" or "tcp://host:*". Lines that start with "#" and anything after
/// the name are comments.
/// \param keyFile a file that `writeKeyFile` has written
/// \param trustedKeysFile a file that belongs to the effective user or to root, and that other users cannot write
/// \throws std::logic_error if a socket has already connected or bound a TCP endpoint in plain, or tried to
/// \throws std::runtime_error if a file cannot be read, a line is invalid, or ZeroMQ has no CURVE
/// \throws std::system_error if a lock fails
RK_SOCKET_EXPORT void enable(const std::string& keyFile, const std::string& trustedKeysFile);

} // namespace rk::socket::Security
