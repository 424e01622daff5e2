#pragma once

#include "support/messages.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <memory>

namespace rk::tests {

/// A listener that ignores its messages, and relies on the base class to stop it.
class BareListener : public socket::utils::SocketListener {
public:
    BareListener() : SocketListener(socket::Protocol::Rep, "bare") {}
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }
    void handleMessage(google::protobuf::Message* /*message*/, std::shared_ptr<socket::Socket> /*socket*/) override {}
};

} // namespace rk::tests
