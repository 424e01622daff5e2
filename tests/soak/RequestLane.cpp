#include "soak/RequestLane.h"

#include "soak/LogWatch.h"
#include "soak/Patience.h"
#include "support/messages.pb.h"

#include <stdexcept>

namespace rk::tests::soak {

namespace {

constexpr std::chrono::milliseconds untilRepeated{500};
constexpr unsigned largestReply = 1024;

} // namespace

Answerer::Answerer(const std::string& listenerName) : SocketListener(socket::Protocol::Rep, listenerName) {}

Answerer::~Answerer() {
    std::string ignored;
    stop(ignored);
}

std::shared_ptr<google::protobuf::Message> Answerer::createMessage() {
    return std::make_shared<Text>();
}

void Answerer::handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) {
    const std::string& text = static_cast<Text*>(message)->text();
    if (text == "throw") {
        throw std::runtime_error("as asked");
    }
    if (text != "say nothing") {
        socket->sendProtoBuf(message);
    }
}

RequestLane::RequestLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
    : Lane("request", transport, seed, allFigures),
      listener(name() + "-listener"),
      client(name() + "-client", socket::ClosePolicy::DropPending) {
    std::string error;
    if (!listener.addListenEndpoint(endpoint.toString(socket::Protocol::Rep), error) || !listener.start(error)) {
        throw std::runtime_error(error);
    }
    client.createAndConnect(socket::Protocol::Req, endpoint, 0);
}

void RequestLane::step() {
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

/// What the client sends before it has noticed that its peer is gone is lost, and has to be repeated.
void RequestLane::restartListener() {
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

void RequestLane::failInHandler(const std::string& how) {
    LogWatch& log = LogWatch::ofProcess();
    const std::string socketName = name() + "-listener";
    const std::uint64_t before = log.connections(socketName);
    send(how);
    ++figures.failures;
    if (!log.waitForConnection(socketName, before)) {
        breach("the listener is not rebuilt after a handler that does not reply");
    }
    std::string ignored;
    if (client.poll(0, ignored) == socket::PollResult::Input) {
        breach("a reply that nobody has sent");
    }
    ask(untilRepeated);
}

void RequestLane::jam() {
    send(nextRequest());
    ++figures.jams;
    ask(patience);
}

void RequestLane::ask(std::chrono::milliseconds patienceForEach) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (std::string request = nextRequest(); std::chrono::steady_clock::now() < deadline; request = nextRequest()) {
        send(request);
        if (replyComes(request, patienceForEach)) {
            ++figures.exchanges;
            return;
        }
        ++figures.repeats;
    }
    breach("request " + std::to_string(number) + " is not served");
}

std::string RequestLane::nextRequest() {
    return std::to_string(++number);
}

void RequestLane::send(const std::string& request) {
    Text message;
    message.set_text(request);
    client.sendProtoBuf(&message);
}

bool RequestLane::replyComes(const std::string& request, std::chrono::milliseconds patienceForEach) {
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

} // namespace rk::tests::soak
