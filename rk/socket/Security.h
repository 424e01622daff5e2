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
/// The public key may be known to everyone. Whoever has the secret key can pass for the process. Each object wipes its
/// own copy of the secret key when it is destroyed.
struct KeyPair {
    RK_SOCKET_EXPORT ~KeyPair();

    std::string publicKey; ///< of 40 characters
    std::string secretKey; ///< of 40 characters
};

/// Returns a new key pair from the system's random numbers.
/// \throws std::runtime_error if ZeroMQ has no CURVE
RK_SOCKET_EXPORT KeyPair generateKeyPair();

/// Writes `keys` to a new file that only its owner can read: the public key on the first line, the secret key on the
/// second. After a failure, there is no file at `path`, or the one that was there before.
/// \throws std::invalid_argument if `keys` is not a key pair
/// \throws std::runtime_error if `path` exists, or the file cannot be written
RK_SOCKET_EXPORT void writeKeyFile(const KeyPair& keys, const std::string& path);

/// Reads a file as `writeKeyFile` writes it. Symbolic links are followed.
/// \throws std::runtime_error if the file cannot be read, is not a regular file, belongs neither to the effective user
///         nor to root, can be accessed by other users, or does not hold a key pair
RK_SOCKET_EXPORT KeyPair readKeyFile(const std::string& path);

/// Encrypts every TCP endpoint of this process from now on. There is no way back.
///
/// A `Pub` or `Rep` admits the clients whose keys are in the file of trusted keys, and refuses all others. A `Sub` or
/// `Req` connects to an endpoint only if the file has a key for it, and only to the server that has this key.
///
/// Call it again to read both files again. Trusted keys count for connections that are made from then on, and the key
/// pair for endpoints that are connected or bound from then on. A call that throws changes nothing.
///
/// The file of trusted keys has one key per line, then blanks, then the name of a client, or the endpoint of a server as
/// "tcp://host:port" or "tcp://host:*". A line that begins with "#" is a comment, and so is what follows the name.
/// \param keyFile the key pair of this process, as `writeKeyFile` writes it
/// \param trustedKeysFile belongs to the effective user or to root, and cannot be written by other users
/// \throws std::logic_error if a TCP endpoint was already connected or bound in plain
/// \throws std::runtime_error if a file cannot be read, or has a wrong line
RK_SOCKET_EXPORT void enable(const std::string& keyFile, const std::string& trustedKeysFile);

} // namespace rk::socket::Security
