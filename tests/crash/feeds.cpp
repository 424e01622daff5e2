#include "crash/EndSignal.h"
#include "crash/History.h"
#include "crash/roles.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <memory>
#include <stdexcept>

namespace rk::tests::crash {

namespace {

constexpr std::chrono::milliseconds betweenMessages{10};

class Reader : public socket::utils::SocketListener {
public:
    Reader() : SocketListener(socket::Protocol::Sub, "subscriber") {}
    ~Reader() override {
        std::string ignored;
        stop(ignored);
    }

    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }

    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> /*socket*/) override {
        const auto letter = unseal(static_cast<Text*>(message)->text());
        record(letter ? "got " + letter->text() : "garbled");
    }
};

} // namespace

void publish(const socket::SocketEndpoint& endpoint) {
    socket::Socket publisher("publisher", socket::ClosePolicy::DropPending);
    publisher.createAndConnect(socket::Protocol::Pub, endpoint, 0);
    record("ready");
    Letter letter{processName(), 0, 1, false};
    while (!isAskedToEndWithin(betweenMessages)) {
        ++letter.number;
        Text message;
        message.set_text(seal(letter));
        record("publish " + std::to_string(letter.number));
        publisher.sendProtoBuf(&message);
    }
}

void subscribe(const std::string& endpoint) {
    Reader listener;
    std::string error;
    if (!listener.addListenEndpoint(endpoint, error) || !listener.start(error)) {
        throw std::runtime_error(error);
    }
    record("ready");
    waitForEndSignal();
}

} // namespace rk::tests::crash
