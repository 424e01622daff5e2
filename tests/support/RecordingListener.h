#pragma once

#include "Test.h"
#include "ZmqHandle.h"
#include "support/messages.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>

namespace rk::tests {

/// A listener that records the strings that it receives, and then calls the test's handler. The default handler is
/// `echo` for `Rep` and `ignore` for `Sub`.
class RecordingListener : public socket::utils::SocketListener {
public:
    using Maker = std::function<std::shared_ptr<google::protobuf::Message>()>;
    using Handler = std::function<void(Text&, const std::shared_ptr<Socket>&)>;

    explicit RecordingListener(Protocol::Protocol pattern);
    ~RecordingListener() override;

    /// Stops without waiting for the end of the current poll.
    bool stop(std::string& error) override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) override;

    using SocketListener::setMessageBufferSize;

    /// Adds the endpoint and starts. If this fails, so does the test.
    void serve(const SocketEndpoint& endpoint);

    void setMaker(Maker maker);
    void setHandler(Handler handler);

    std::vector<std::string> texts() const;

    /// Waits until the handler has been called `count` times.
    bool waitForTexts(std::size_t count) const;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Maker make;
    Handler handle;
    std::vector<std::string> received;
};

/// A listener that ignores its messages, and relies on the base class to stop it.
class BareListener : public socket::utils::SocketListener {
public:
    BareListener() : SocketListener(Protocol::Rep, "bare") {}
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }
    void handleMessage(google::protobuf::Message* /*message*/, std::shared_ptr<Socket> /*socket*/) override {}
};

/// Replies with the message itself.
void echo(Text& text, const std::shared_ptr<Socket>& socket);

/// Returns a handler that replies with the message itself once `event` has a value.
RecordingListener::Handler echoAfter(std::promise<void>& event);

/// Never replies.
void ignore(Text& text, const std::shared_ptr<Socket>& socket);

/// Sends a request from a new client and returns the reply.
std::string ask(const SocketEndpoint& endpoint, const std::string& question);

/// A listener and its endpoint.
class ListenerTest : public testing::Test {
protected:
    explicit ListenerTest(Transport::Transport transport = Transport::Inproc,
                          Protocol::Protocol pattern = Protocol::Rep)
        : listener(pattern), endpoint(freshEndpoint(transport)) {}

    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener;
    SocketEndpoint endpoint;
    std::string error;
};

} // namespace rk::tests
