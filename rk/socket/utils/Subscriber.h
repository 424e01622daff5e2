#pragma once
#pragma GCC system_header // users are not warned that a base's destructor is not virtual

#include <rk/socket/utils/SocketListener.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace rk::socket::utils {

/// A subscribe listener that calls a function with each received `Message`.
///
/// Construct it with the function, add endpoints, then call `start`. The function runs on the listener's thread, one
/// message at a time, by the rules of `SocketListener`. Everything that a lambda captures by reference must outlive the
/// subscriber.
///
/// `Message` is a message class that protoc has generated. Include its header.
template <class Message>
class Subscriber final : public SocketListener {
public:
    /// Handles a message.
    using Handler = std::function<void(const Message& message)>;

    /// \param socketName the name of the subscriber's socket
    /// \param messageHandler the function to call with each message
    /// \throws std::invalid_argument if `messageHandler` is empty
    Subscriber(const std::string& socketName, Handler messageHandler)
        : SocketListener(Protocol::Sub, socketName), handler(std::move(messageHandler)) {
        requireHandler(static_cast<bool>(handler));
    }

    /// Stops the subscriber as `stop` does.
    ~Subscriber() override {
        std::string ignored;
        stop(ignored);
    }

    /// Starts the subscriber as `SocketListener::start` does, but fails if an endpoint cannot be connected. Returns
    /// false then, with the reason in `error`.
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
