#pragma once
#pragma GCC system_header // users are not warned that a base's destructor is not virtual

#include <rk/socket/utils/SocketListener.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace rk::socket::utils {

/// A subscribe listener that hands each received `Message` to a function.
///
/// Add endpoints, then call `start`. The function runs on the listener's thread, one message at a time, under the rules
/// of `SocketListener::handleMessage`. Everything that a lambda captures by reference must outlive the subscriber.
///
/// `Message` is a message type that protoc has generated. Include its header.
template <class Message>
class Subscriber final : public SocketListener {
public:
    /// Handles a message.
    using Handler = std::function<void(const Message& message)>;

    /// \param socketName the name of the subscriber's socket
    /// \param messageHandler what is called with each message
    /// \throws std::invalid_argument if `messageHandler` is empty
    Subscriber(const std::string& socketName, Handler messageHandler)
        : SocketListener(Protocol::Sub, socketName), handler(std::move(messageHandler)) {
        requireHandler(static_cast<bool>(handler));
    }

    /// Stops the subscriber, as `stop` does.
    ~Subscriber() override {
        std::string ignored;
        stop(ignored);
    }

    /// Starts the subscriber as `SocketListener::start` does, but returns false, with the reason in `error`, when an
    /// endpoint cannot be connected.
    bool start(std::string& error) override { return startOnAll(error); }

    using SocketListener::setMessageBufferSize;

private:
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Message>(); }

    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> /*socket*/) override {
        handler(static_cast<const Message&>(*message));
    }

    const Handler handler;
};

} // namespace rk::socket::utils
