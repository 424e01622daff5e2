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

/// Sends requests to one server, each with a deadline, and retries requests that get no reply.
///
/// Construct it with the endpoint of the server and call `request`. The first request connects. The connection stays
/// open as long as every request gets its reply. One thread at a time uses a requester.
///
/// The server may handle a retried request twice, because it was slow or died after it did the work. Make its handler
/// idempotent, or use one attempt.
///
/// A late reply to an earlier attempt or request is discarded: each request carries a number, in a frame that a ZeroMQ
/// reply socket returns. A server without such a socket must return all frames up to the empty one.
class RK_SOCKET_EXPORT Requester {
public:
    /// Constructs a requester without a connection.
    /// \param name the name of the requester's socket
    /// \param server the endpoint of the server
    Requester(const std::string& name, const SocketEndpoint& server);

    /// Closes the connection.
    ~Requester();

    Requester(const Requester&) = delete;
    Requester& operator=(const Requester&) = delete;

    /// Sends `request` and parses its reply into `reply`. If no reply arrives within `timeout`, reconnects and sends
    /// the request again, up to `attempts` times in all.
    ///
    /// Blocks for at most `attempts` times `timeout`, plus the time to connect, which does not wait for the server.
    /// Signals do not end it. After a failure the server may still handle the request, and the next request starts on a
    /// fresh connection. On inproc, bind first: each attempt before that uses up a ZeroMQ socket until the process
    /// ends.
    ///
    /// \param request the message to send
    /// \param reply the result, of at most 2147483647 bytes. It may be partly filled after a failure.
    /// \param timeout of each attempt, at least one millisecond
    /// \param attempts at least 1
    /// \throws TimeoutException if the last attempt gets no reply in time
    /// \throws std::invalid_argument if `timeout` or `attempts` is too small. Nothing has been sent then.
    /// \throws ZmqContextTerminationException once process exit has begun
    /// \throws std::runtime_error if the request cannot be serialised, no connection can be made, or the reply is not
    ///         one message of this type
    /// \throws std::system_error if a lock fails
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
