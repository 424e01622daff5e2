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
/// One thread at a time uses a set, and the sockets in it belong to the same thread. The set refers to its sockets and
/// descriptors and does not own them: remove a socket before it is destroyed, and a descriptor before it is closed. A
/// socket that is rebuilt, or created again, stays in the set.
///
/// A handler may add and remove anything, itself included. It should read what is there and return: the next handler
/// waits for it. What it leaves unread calls it again at the next `wait`.
class RK_SOCKET_EXPORT PollSet {
public:
    PollSet();
    ~PollSet();
    PollSet(const PollSet&) = delete;
    PollSet& operator=(const PollSet&) = delete;

    /// Adds a socket, or replaces its handler. The handler is called when a message can be received.
    /// \throws std::invalid_argument if the handler is empty
    void add(Socket& socket, std::function<void()> handler);

    /// Adds a file descriptor, or replaces its handler. The handler is called when the descriptor can be read, when its
    /// other end hangs up, and when it is closed or broken.
    /// \throws std::invalid_argument if the handler is empty or the descriptor is negative
    void add(int descriptor, std::function<void()> handler);

    /// Refused, because a condition is no descriptor.
    void add(bool, std::function<void()>) = delete;

    /// Removes a socket. Does nothing if it is not in the set.
    void remove(const Socket& socket) noexcept;

    /// Removes a descriptor. Does nothing if it is not in the set.
    void remove(int descriptor) noexcept;

    /// Waits until something in the set is ready, then calls the handler of each thing that is, once. Returns how many
    /// handlers it has called: 0 if the time runs out, or a signal arrives first.
    ///
    /// Before each handler it asks again whether there is still input, because an earlier handler may have read it. An
    /// exception of a handler leaves `wait`. The handlers behind it are called by the next `wait`.
    ///
    /// \param timeout 0 returns at once, a negative time waits without limit
    /// \throws std::runtime_error if a socket in the set is closed, or ZeroMQ cannot poll
    /// \throws ZmqContextTerminationException once the process exits
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
