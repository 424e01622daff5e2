#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <string>

namespace rk::tests {

/// A connection without ZeroMQ. Waits at most 20 seconds for bytes.
class SystemConnection {
public:
    /// Connects to a TCP port of this machine.
    /// \throws std::runtime_error if nothing listens there
    explicit SystemConnection(unsigned short port);
    ~SystemConnection();
    SystemConnection(const SystemConnection&) = delete;
    SystemConnection& operator=(const SystemConnection&) = delete;

    /// Sends as much as the peer accepts before it disconnects.
    void send(const std::string& bytes) const;

    /// Returns the next bytes, or none at the end of the connection.
    std::string receive() const;

    /// Discards bytes until the peer disconnects. Returns false if it does not in time.
    bool waitForEnd() const;

    /// Returns the descriptor, or -1 if `accept` returned because of `SystemListener::end`.
    int descriptor() const { return handle; }

private:
    friend class SystemListener;
    struct Accepted {
        int descriptor;
    };
    explicit SystemConnection(Accepted accepted);

    const int handle;
};

/// A listening socket without ZeroMQ.
class SystemListener {
public:
    /// Listens on a TCP port of this machine, or on a socket file.
    /// \throws std::runtime_error if that fails
    explicit SystemListener(const socket::SocketEndpoint& endpoint);
    ~SystemListener();
    SystemListener(const SystemListener&) = delete;
    SystemListener& operator=(const SystemListener&) = delete;

    SystemConnection accept() const;

    /// Makes `accept` return, from any thread.
    void end() const;

private:
    const int handle;
};

/// A server of another protocol on a TCP port. It sends the same bytes on every connection and closes it.
class WrongServer {
public:
    explicit WrongServer(const socket::SocketEndpoint& endpoint) : listener(endpoint) {}

    /// Waits until the client disconnects. Returns false if it does not in time.
    bool answerOne() const;

private:
    const SystemListener listener;
};

} // namespace rk::tests
