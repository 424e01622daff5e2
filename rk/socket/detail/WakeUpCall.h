#pragma once

#include <cstddef>
#include <mutex>

namespace rk::socket::detail {

class BoundAddresses;

/// A request to a reply socket of this process, which wakes the thread that is blocked in its receive.
///
/// The destructor discards the request if the thread has not received it.
class WakeUpCall {
public:
    WakeUpCall() = default;
    ~WakeUpCall();
    WakeUpCall(const WakeUpCall&) = delete;
    WakeUpCall& operator=(const WakeUpCall&) = delete;

    /// Sends the request to the first of `addresses` that accepts the connection. Does not block. Call it again until
    /// the thread wakes: the request is sent once, but not before a connection is made and the process has a socket.
    /// \param mutex guards the addresses
    /// \throws std::runtime_error if ZeroMQ refuses an option
    /// \throws std::system_error if a lock fails
    void send(const BoundAddresses& addresses, std::mutex& mutex);

    /// Returns whether the request lies at the start of the `size` bytes at `buffer`. No message parses from it.
    static bool isIn(const char* buffer, std::size_t size);

private:
    void open(const BoundAddresses& addresses);
    void close() noexcept;

    void* socket = nullptr;
};

} // namespace rk::socket::detail
