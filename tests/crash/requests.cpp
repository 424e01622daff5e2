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

constexpr std::chrono::milliseconds betweenRequests{5};
constexpr unsigned failsEvery = 197;
constexpr unsigned largestReply = 1024;

class Answerer : public socket::utils::SocketListener {
public:
    Answerer() : SocketListener(socket::Protocol::Rep, "server") {}
    ~Answerer() override {
        std::string ignored;
        stop(ignored);
    }

    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }

    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override {
        const auto letter = unseal(static_cast<Text*>(message)->text());
        if (!letter) {
            record("garbled");
            throw std::runtime_error("a request that the network has changed");
        }
        record((letter->fails ? "fail " : "serve ") + letter->text());
        if (letter->fails) {
            throw std::runtime_error("as asked");
        }
        socket->sendProtoBuf(message);
    }
};

/// A client that asks one question after the other.
class Asker {
public:
    Asker(const socket::SocketEndpoint& endpoint, unsigned replyTimeout)
        : client("client", socket::ClosePolicy::DropPending), timeout(replyTimeout) {
        client.createAndConnect(socket::Protocol::Req, endpoint, 0);
    }

    void askOnce() {
        send();
        if (isAnswered()) {
            letter = {processName(), letter.number + 1, 1, (letter.number + 1) % failsEvery == 0};
        } else {
            // The handler fails on the first attempt alone.
            letter.fails = false;
            ++letter.attempt;
        }
    }

private:
    std::string identity() const { return std::to_string(letter.number) + " " + std::to_string(letter.attempt); }

    void send() {
        record((letter.fails ? "provoke " : "ask ") + identity());
        Text message;
        message.set_text(seal(letter));
        client.sendProtoBuf(&message);
    }

    bool isAnswered() {
        std::string error;
        if (client.poll(timeout, error) != socket::PollResult::Input) {
            record("timeout " + identity());
            return false;
        }
        Text message;
        try {
            client.receiveProtoBuf(&message, largestReply);
        } catch (const std::runtime_error&) {
            record("garbled");
            return false;
        }
        const auto reply = unseal(message.text());
        if (!reply) {
            record("garbled");
            return false;
        }
        record("reply " + identity() + " " + reply->text());
        return true;
    }

    socket::Socket client;
    const unsigned timeout;
    Letter letter{processName(), 1, 1, false};
};

} // namespace

void serve(const std::vector<std::string>& endpoints) {
    Answerer listener;
    std::string error;
    for (const std::string& endpoint : endpoints) {
        listener.addListenEndpoint(endpoint, error);
    }
    if (!listener.start(error)) {
        throw std::runtime_error(error);
    }
    record("ready");
    waitForEndSignal();
}

void ask(const socket::SocketEndpoint& endpoint, unsigned timeout) {
    Asker asker(endpoint, timeout);
    record("ready");
    do {
        asker.askOnce();
    } while (!isAskedToEndWithin(betweenRequests));
}

void sendAndClose(const socket::SocketEndpoint& endpoint, socket::ClosePolicy::ClosePolicy policy) {
    socket::Socket client("closer", policy);
    client.createAndConnect(socket::Protocol::Req, endpoint, 0);
    Text message;
    message.set_text(seal({processName(), 1, 1, false}));
    record("ask 1 1");
    client.sendProtoBuf(&message);
    client.close();
    record("closed " + std::to_string(policy));
}

} // namespace rk::tests::crash
