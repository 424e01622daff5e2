#pragma once

#include "support/messages.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace rk::tests {

/// Passes each string that it receives to a function.
class TextListener final : public socket::utils::SocketListener {
public:
    using Handler = std::function<void(Text&, socket::Socket&)>;

    TextListener(socket::Protocol::Protocol pattern, const std::string& listenerName, Handler use)
        : SocketListener(pattern, listenerName), handler(std::move(use)) {}
    ~TextListener() override {
        std::string ignored;
        stop(ignored);
    }

    /// \throws std::runtime_error if an endpoint cannot be added or the listener cannot start
    void startOn(const std::vector<std::string>& addresses) {
        std::string error;
        for (const std::string& address : addresses) {
            if (!addListenEndpoint(address, error)) {
                throw std::runtime_error(error);
            }
        }
        if (!start(error)) {
            throw std::runtime_error(error);
        }
    }

    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }

    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override {
        handler(static_cast<Text&>(*message), *socket);
    }

private:
    const Handler handler;
};

} // namespace rk::tests
