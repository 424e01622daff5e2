#include "endurance/TextListener.h"
#include "endurance/soak/Lane.h"
#include "endurance/soak/LogWatch.h"
#include "support/Immortal.h"

#include <rk/socket/Socket.h>

#include <stdexcept>

namespace rk::tests::soak {

namespace {

constexpr std::chrono::milliseconds untilRepeated{500};
constexpr unsigned largestReply = 1024;

/// Echoes the request, unless it is "throw" or "say nothing".
void answer(const Text& request, socket::Socket& socket) {
    if (request.text() == "throw") {
        throw std::runtime_error("as asked");
    }
    if (request.text() != "say nothing") {
        Text reply = request;
        socket.sendProtoBuf(&reply);
    }
}

class RequestLane : public Lane {
public:
    RequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
        : Lane("request", std::chrono::milliseconds(40), transport, seed, allFigures),
          listenerName(name + "-listener"),
          listener(socket::Protocol::Rep, listenerName, answer),
          client(name + "-client", socket::ClosePolicy::DropPending) {
        listener.startOn({endpoint.toString(socket::Protocol::Rep)});
        client.createAndConnect(socket::Protocol::Req, endpoint, 0);
    }

    void step() override {
        if (onceIn(150)) {
            restartListener();
        } else if (onceIn(20)) {
            failInHandler(onceIn(2) ? "throw" : "say nothing");
        } else if (onceIn(20)) {
            jam();
        } else {
            ask(patience);
        }
    }

private:
    /// The client may send a request before it detects that its peer has ended. The request is then lost and must be
    /// sent again.
    void restartListener() {
        std::string error;
        if (!listener.stop(error) || !listener.start(error)) {
            breach("cannot restart the listener: " + error);
        }
        ++figures.restarts;
        if (!reconnectsByItself) {
            client.resetConnections();
        }
        ask(untilRepeated);
    }

    void failInHandler(const std::string& how) {
        LogWatch& log = immortal<LogWatch>();
        const std::uint64_t before = log.connections(listenerName);
        send(how);
        ++figures.failures;
        if (!log.waitForConnection(listenerName, before)) {
            breach("the listener is not rebuilt after a handler that does not reply");
        }
        std::string ignored;
        if (client.poll(0, ignored) == socket::PollResult::Input) {
            breach("a reply that the listener has not sent");
        }
        ask(untilRepeated);
    }

    void jam() {
        send(nextRequest());
        ++figures.jams;
        ask(patience);
    }

    void ask(std::chrono::milliseconds patienceForEach) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::string request = nextRequest();
            send(request);
            if (replyComes(request, patienceForEach)) {
                ++figures.exchanges;
                return;
            }
            ++figures.repeats;
        }
        breach("request " + std::to_string(number) + " is not served");
    }

    std::string nextRequest() { return std::to_string(++number); }

    void send(const std::string& request) {
        Text message;
        message.set_text(request);
        client.sendProtoBuf(&message);
    }

    bool replyComes(const std::string& request, std::chrono::milliseconds patienceForEach) {
        std::string error;
        if (client.poll(static_cast<unsigned>(patienceForEach.count()), error) != socket::PollResult::Input) {
            return false;
        }
        Text reply;
        client.receiveProtoBuf(&reply, largestReply);
        if (reply.text() != request) {
            breach("request " + request + " has got the reply " + reply.text());
        }
        return true;
    }

    const std::string listenerName;
    TextListener listener;
    socket::Socket client;
    std::uint64_t number = 0;
};

} // namespace

std::unique_ptr<Lane> makeRequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures) {
    return std::make_unique<RequestLane>(transport, seed, figures);
}

} // namespace rk::tests::soak
