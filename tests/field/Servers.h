#pragma once

#include <rk/socket/utils/SocketListener.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>

namespace rk::tests {

/// Answers every block with its bytes in reverse, on a thread of its own, and goes on whatever a request does to it.
class BlockServer {
public:
    /// \param socket a reply socket, bound
    /// \param size the longest block that it takes
    BlockServer(std::unique_ptr<socket::Socket> socket, std::size_t size);
    ~BlockServer();
    BlockServer(const BlockServer&) = delete;
    BlockServer& operator=(const BlockServer&) = delete;

private:
    void serve();
    void serveOne();

    std::unique_ptr<socket::Socket> socket;
    std::string block;
    std::atomic<bool> stopRequested{false};
    std::thread thread;
};

/// Answers every command with the one that has the next number and the payload in reverse. As a subscriber it counts
/// what it gets.
class CommandListener : public socket::utils::SocketListener {
public:
    CommandListener(socket::Protocol::Protocol pattern, const std::string& name);
    ~CommandListener() override;

    int count() const;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override;

private:
    const bool replies;
    std::atomic<int> handled{0};
};

} // namespace rk::tests
