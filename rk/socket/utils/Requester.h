#pragma once

#include <rk/Export.h>
#include <rk/socket/Socket.h>
#include <rk/socket/SocketEndpoint.h>

#include <chrono>
#include <string>

namespace google::protobuf {
class Message;
}

namespace rk::socket::utils {

/// Sends requests to one server, each with a deadline, and repeats those that get no reply.
///
/// One thread at a time uses a requester. It connects at its first request, and keeps the connection for as long as
/// every request gets its reply.
///
/// A repeated request may be served more than once: the server may have been slow, or may have died after it did the
/// work. Make its handler idempotent, or ask once.
///
/// A reply is never taken for the reply to another request, or to an earlier attempt: each request carries a number,
/// in a frame that the server's ZeroMQ returns. A peer without a ZeroMQ reply socket must return all frames up to the
/// empty one.
class RK_SOCKET_EXPORT Requester {
public:
    /// Does not connect yet. `name` is the name of the requester's socket.
    Requester(const std::string& name, const SocketEndpoint& server);

    /// Closes the connection.
    ~Requester();

    Requester(const Requester&) = delete;
    Requester& operator=(const Requester&) = delete;

    /// Sends `request` and parses its reply into `reply`. When `timeout` is over, closes the connection, connects again
    /// and repeats the request, until it has been sent `attempts` times.
    ///
    /// Blocks for at most `attempts` times `timeout`, and for the connecting, which does not wait for the server.
    /// Signals do not end it. After a failure the next request starts on a fresh connection, and the server may still
    /// serve this one. On inproc, each attempt while no socket has bound the name uses up one of ZeroMQ's sockets until
    /// the process ends.
    ///
    /// \param request what to send
    /// \param reply what to parse into, of any size; after a failure it may hold parts
    /// \param timeout of each attempt, at least one millisecond
    /// \param attempts at least 1
    /// \throws TimeoutException if the last attempt got no reply in time
    /// \throws std::invalid_argument if `timeout` or `attempts` is too small; nothing has been sent
    /// \throws ZmqContextTerminationException once the process exits
    /// \throws std::runtime_error if the request cannot be serialised, no connection can be made, or the reply is not
    ///         one message of this type
    /// \throws std::system_error if a mutex cannot be locked
    void request(const google::protobuf::Message& request, google::protobuf::Message& reply,
                 std::chrono::milliseconds timeout, unsigned int attempts = 1);

private:
    class Deadline;

    RK_SOCKET_NO_EXPORT bool attempt(const std::string& request, google::protobuf::Message& reply,
                                     std::chrono::milliseconds timeout);
    RK_SOCKET_NO_EXPORT void open();
    RK_SOCKET_NO_EXPORT bool exchange(const std::string& request, google::protobuf::Message& reply,
                                      const Deadline& deadline);

    Socket socket;
    SocketEndpoint server;
};

} // namespace rk::socket::utils
