#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>

namespace rk::tools {

class StopSignals;

/// Why an endpoint cannot be probed further.
class Trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A connection to an endpoint, with a time limit for each step.
class Line {
public:
    Line(std::chrono::milliseconds limitOfStep, bool withIpv6, const StopSignals& stopSignals)
        : limit(limitOfStep), ipv6(withIpv6), stop(stopSignals) {}
    ~Line() { close(); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Returns one with the same limit, not connected.
    Line another() const { return {limit, ipv6, stop}; }

    /// Throws Trouble.
    void connectTo(const rk::socket::SocketEndpoint& endpoint);

    /// Listens on a name that the system chooses. Returns the endpoint.
    std::string listen();

    /// Replaces the listener by the first connection.
    void accept();

    void write(std::string_view bytes) const;

    /// Returns `size` bytes, or fewer after the limit or the end of the connection.
    std::string read(std::size_t size);

    /// Returns the bytes that are there, at most `size`.
    std::string readSome(std::size_t size);

    bool isClosed() const { return closed; }

    /// Waits for the event, or for input on the other line. Returns false after the limit or a signal.
    bool await(short event, const Line* other = nullptr) const;

private:
    void close();
    int tryAddress(int family, const sockaddr* address, socklen_t length);
    void connectToFile(const std::string& path);
    void connectToHost(const rk::socket::SocketEndpoint& endpoint);

    std::chrono::milliseconds limit;
    bool ipv6;
    const StopSignals& stop;
    int descriptor = -1;
    bool closed = false;
};

} // namespace rk::tools
