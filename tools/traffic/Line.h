#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>

namespace rk::tools {

class StopSignals;

/// Why an endpoint cannot be probed further, for people.
class Trouble : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A connection to an endpoint, with a time limit for each step.
class Line {
public:
    Line(std::chrono::milliseconds limitOfStep, const StopSignals& stopSignals)
        : limit(limitOfStep), stop(stopSignals) {}
    ~Line() { close(); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// One with the same limit, not connected.
    Line another() const { return {limit, stop}; }

    /// Throws Trouble.
    void connectTo(const rk::socket::SocketEndpoint& endpoint);

    /// Listens on a name that the system chooses. Returns it as an endpoint.
    std::string listen();

    /// Replaces the listener by the connection that comes first.
    void accept();

    void write(std::string_view bytes) const;

    /// Up to `size` bytes. Fewer when no more come in time, or when the other side closes the connection.
    std::string read(std::size_t size);

    /// What is there now, at most `size` bytes.
    std::string readSome(std::size_t size);

    bool isClosed() const { return closed; }

    /// Waits until there is something to read on one of two lines. False when the limit is over, or when told to stop.
    static bool awaitOne(const Line& first, const Line& second);

private:
    void close();
    bool await(short event) const;
    int tryAddress(int family, const sockaddr* address, socklen_t length);
    void connectToFile(const std::string& path);
    void connectToHost(const rk::socket::SocketEndpoint& endpoint);

    std::chrono::milliseconds limit;
    const StopSignals& stop;
    int descriptor = -1;
    bool closed = false;
};

} // namespace rk::tools
