#pragma once

#include <cstddef>
#include <mutex>

namespace rk::socket::detail {

class BoundAddresses;

/// A request that this process sends to its own reply socket, to wake a thread that is blocked in a receive.
///
/// The destructor discards the request if the thread has not received it.
class WakeUpCall {
public:
    WakeUpCall() = default;
    ~WakeUpCall();
    WakeUpCall(const WakeUpCall&) = delete;
    WakeUpCall& operator=(const WakeUpCall&) = delete;

    /// Sends the request to the first of `addresses` that accepts the connection. Does not block. Call it again until
    /// the thread wakes: it sends the request once, and only when a connection exists and the process has a socket.
    /// \param mutex guards the addresses
    /// \throws std::runtime_error if ZeroMQ refuses an option
    /// \throws std::system_error if a lock fails
    void send(const BoundAddresses& addresses, std::mutex& mutex);

    /// Returns whether the `size` bytes at `buffer` start with the request, or are its start. Protobuf cannot parse it.
    static bool isIn(const char* buffer, std::size_t size);

private:
    void open(const BoundAddresses& addresses);
    void close() noexcept;

    void* socket = nullptr;
};

} // namespace rk::socket::detail
