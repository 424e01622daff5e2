#pragma once

#include "support/messages.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace rk::tests {

/// A listener that notes the texts that it is sent, and does with them what the test says; at first it sends them back.
class RecordingListener : public socket::utils::SocketListener {
public:
    using Maker = std::function<std::shared_ptr<google::protobuf::Message>()>;
    using Handler = std::function<void(Text&, const std::shared_ptr<socket::Socket>&)>;

    explicit RecordingListener(socket::Protocol::Protocol pattern);
    ~RecordingListener() override;

    /// Stops without waiting for the end of the poll that lasts.
    bool stop(std::string& error) override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override;

    /// Adds the endpoint and starts; a failed test if that fails.
    void serve(const socket::SocketEndpoint& endpoint);

    void setMaker(Maker maker);
    void setHandler(Handler handler);

    std::vector<std::string> texts() const;

    /// Waits until `count` messages have been handed to the handler.
    bool waitForTexts(std::size_t count) const;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Maker make;
    Handler handle;
    std::vector<std::string> received;
};

/// Sends the message back.
void echo(Text& text, const std::shared_ptr<socket::Socket>& socket);

/// A new client's request, and the reply to it.
std::string ask(const socket::SocketEndpoint& endpoint, const std::string& question);

} // namespace rk::tests
