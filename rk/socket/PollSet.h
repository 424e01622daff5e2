#pragma once

#include <rk/Export.h>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace rk::socket {

class Socket;

/// Waits for input on several sockets and file descriptors in one thread.
///
/// Add sockets and descriptors, each with a handler, then call `wait` in a loop.
///
/// A handler reads the available input and returns, because the other handlers wait for it. If it leaves input unread,
/// the next `wait` calls it again. A handler may add and remove anything, including itself.
///
/// The set does not own its sockets and descriptors. Remove a socket before it is destroyed, and a descriptor before it
/// is closed. A socket that is rebuilt, or created again, stays in the set.
///
/// Threads: one thread at a time uses a set and the sockets in it.
class RK_SOCKET_EXPORT PollSet {
public:
    PollSet();
    ~PollSet();
    PollSet(const PollSet&) = delete;
    PollSet& operator=(const PollSet&) = delete;

    /// Adds a socket, or replaces its handler. The handler is called when a message can be received.
    /// \throws std::invalid_argument if the handler is empty
    void add(Socket& socket, std::function<void()> handler);

    /// Adds a file descriptor, or replaces its handler. The handler is called when the descriptor can be read, its
    /// other end hangs up, or it is closed or broken.
    /// \throws std::invalid_argument if the handler is empty or the descriptor is negative
    void add(int descriptor, std::function<void()> handler);

    /// Deleted, because a condition is not a descriptor.
    void add(bool, std::function<void()>) = delete;

    /// Removes a socket. Does nothing if it is not in the set.
    void remove(const Socket& socket) noexcept;

    /// Removes a descriptor. Does nothing if it is not in the set.
    void remove(int descriptor) noexcept;

    /// Waits for input, then calls the handler of each socket and descriptor that has input, once. Returns the number
    /// of handlers called: 0 if the timeout expires or a signal arrives first.
    ///
    /// Before each handler it checks again for input, because an earlier handler may have read it. `wait` passes on an
    /// exception of a handler. The next `wait` calls the handlers that were still due.
    ///
    /// \param timeout 0 returns at once, a negative time waits without limit
    /// \throws std::runtime_error if a socket in the set is closed, or ZeroMQ cannot poll
    /// \throws ZmqContextTerminationException once process exit has begun
    unsigned int wait(std::chrono::milliseconds timeout);

private:
    struct Item;
    using Items = std::vector<std::shared_ptr<const Item>>;

    RK_SOCKET_NO_EXPORT void insert(Item item);
    RK_SOCKET_NO_EXPORT void remove(const Socket* socket, int descriptor) noexcept;
    RK_SOCKET_NO_EXPORT bool takeTurn(const std::shared_ptr<const Item>& item);

    Items items;
};

} // namespace rk::socket
