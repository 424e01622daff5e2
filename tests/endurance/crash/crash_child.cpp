/// A process of crash.py, in the role that its first argument names. A closer ends by itself, the others when their
/// standard input ends. The environment has settings: PEER_TIMEOUT and SILENCE_LIMIT in seconds, and AS_SOCKET for a
/// subscriber that is no listener.

#include "endurance/InputEnd.h"
#include "endurance/TextListener.h"
#include "endurance/crash/History.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"

#include <rk/socket/Network.h>
#include <rk/socket/Socket.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/utils/Requester.h>

#include <zmq.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

namespace rk::tests::crash {

namespace {

using socket::SocketEndpoint;
using Words = std::vector<std::string>;

constexpr std::chrono::milliseconds betweenMessages{10};
constexpr std::chrono::milliseconds betweenRequests{5};
constexpr unsigned failsEvery = 197;
constexpr unsigned largestReply = 1024;

void send(socket::Socket& socket, const Letter& letter) {
    Text message;
    message.set_text(seal(letter));
    socket.sendProtoBuf(&message);
}

void listen(socket::Protocol::Protocol protocol, const std::string& name, const Words& endpoints,
            const TextListener::Handler& handler) {
    TextListener listener(protocol, name, handler);
    listener.startOn(endpoints);
    record("ready");
    while (!inputEndsWithin(std::chrono::hours(1))) {
    }
}

void answer(Text& message, socket::Socket& socket) {
    const auto letter = unseal(message.text());
    if (!letter) {
        record("garbled");
        throw std::runtime_error("a request that the network has changed");
    }
    record((letter->fails ? "fail " : "serve ") + letter->text());
    if (letter->fails) {
        throw std::runtime_error("as asked");
    }
    socket.sendProtoBuf(&message);
}

void serve(const Words& endpoints) {
    listen(socket::Protocol::Rep, "server", endpoints, answer);
}

void note(const Text& message) {
    const auto letter = unseal(message.text());
    record(letter ? "got " + letter->text() : "garbled");
}

void subscribeWithSocket(const Words& endpoints) {
    socket::Socket subscriber("subscriber", socket::ClosePolicy::DropPending);
    subscriber.createAndConnect(socket::Protocol::Sub, SocketEndpoint::FromString(endpoints.at(0)), 0);
    record("ready");
    std::string error;
    while (!inputEndsWithin(std::chrono::milliseconds(0))) {
        if (subscriber.poll(100, error) == socket::PollResult::Input) {
            Text message;
            subscriber.receiveProtoBuf(&message, largestReply);
            note(message);
        }
    }
}

void subscribe(const Words& endpoints) {
    if (std::getenv("AS_SOCKET") != nullptr) {
        subscribeWithSocket(endpoints);
        return;
    }
    listen(socket::Protocol::Sub, "subscriber", endpoints,
           [](const Text& message, const socket::Socket& /*socket*/) { note(message); });
}

void publish(const Words& endpoints) {
    socket::Socket publisher("publisher", socket::ClosePolicy::DropPending);
    publisher.createAndConnect(socket::Protocol::Pub, SocketEndpoint::FromString(endpoints.at(0)), 0);
    record("ready");
    Letter letter{processName, 0, 1, false};
    while (!inputEndsWithin(betweenMessages)) {
        ++letter.number;
        record("publish " + std::to_string(letter.number));
        send(publisher, letter);
    }
}

/// A client that sends one request after the other, and retries each until its reply arrives.
class Asker {
public:
    Asker(const SocketEndpoint& endpoint, unsigned replyTimeout)
        : client("client", socket::ClosePolicy::DropPending), timeout(replyTimeout) {
        client.createAndConnect(socket::Protocol::Req, endpoint, 0);
    }

    void askOnce() {
        record((letter.fails ? "provoke " : "ask ") + identity());
        send(client, letter);
        if (isAnswered()) {
            letter = {processName, letter.number + 1, 1, (letter.number + 1) % failsEvery == 0};
        } else {
            // The handler fails only on the first attempt.
            letter.fails = false;
            ++letter.attempt;
        }
    }

private:
    std::string identity() const { return std::to_string(letter.number) + " " + std::to_string(letter.attempt); }

    bool isAnswered() {
        std::string error;
        if (client.poll(timeout, error) != socket::PollResult::Input) {
            record("timeout " + identity());
            return false;
        }
        const auto reply = receive();
        record(reply ? "reply " + identity() + " " + reply->text() : "garbled");
        return reply.has_value();
    }

    std::optional<Letter> receive() {
        Text message;
        try {
            client.receiveProtoBuf(&message, largestReply);
        } catch (const std::runtime_error&) {
            return std::nullopt;
        }
        return unseal(message.text());
    }

    socket::Socket client;
    const unsigned timeout;
    Letter letter{processName, 1, 1, false};
};

void ask(const Words& arguments) {
    Asker asker(SocketEndpoint::FromString(arguments.at(0)), static_cast<unsigned>(std::stoul(arguments.at(1))));
    record("ready");
    do {
        asker.askOnce();
    } while (!inputEndsWithin(betweenRequests));
}

/// Sends one request and closes the socket at once. The close policy must deliver the request.
void sendAndClose(const Words& arguments) {
    const auto policy = static_cast<socket::ClosePolicy::ClosePolicy>(std::stoi(arguments.at(1)));
    socket::Socket client("closer", policy);
    client.createAndConnect(socket::Protocol::Req, SocketEndpoint::FromString(arguments.at(0)), 0);
    record("ask 1 1");
    send(client, {processName, 1, 1, false});
    client.close();
    record("closed " + std::to_string(policy));
}

unsigned seconds(const char* variable) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? 0 : static_cast<unsigned>(std::stoul(text));
}

void setUpNetwork() {
    if (const unsigned timeout = seconds("PEER_TIMEOUT")) {
        socket::Network::setPeerTimeout(timeout);
    }
    socket::Network::setSilenceLimit(seconds("SILENCE_LIMIT"));
}

/// A misbehaving server. It is sometimes slow, repeats some replies and omits others.
class Misbehaving {
public:
    Misbehaving(const Words& endpoints, std::chrono::milliseconds slowness) : pause(slowness) {
        const int patience = 10;
        const int none = 0;
        zmq_setsockopt(router.get(), ZMQ_RCVTIMEO, &patience, sizeof patience);
        zmq_setsockopt(router.get(), ZMQ_LINGER, &none, sizeof none);
        for (const std::string& endpoint : endpoints) {
            if (zmq_bind(router.get(), endpoint.c_str()) != 0) {
                throw std::runtime_error(zmq_strerror(zmq_errno()));
            }
        }
    }

    void serveOne() {
        const Words request = receive();
        if (request.empty()) {
            return;
        }
        Words& before = previous[request.front()];
        switch (++served % 7) {
        case 1:
        case 2:
            send(request);
            send(request);
            break;
        case 3:
            send(before);
            send(request);
            send(before);
            break;
        case 4:
            // The delay is the fault: the reply comes after its client has timed out, which the server cannot notice.
            std::this_thread::sleep_for(pause);
            send(request);
            break;
        case 5:
            break;
        default:
            send(request);
        }
        before = request;
    }

private:
    /// Returns the frames of a request, or no frames if there is none.
    Words receive() {
        Words frames;
        do {
            char buffer[1024];
            const int length = zmq_recv(router.get(), buffer, sizeof buffer, 0);
            if (length < 0) {
                return {};
            }
            frames.emplace_back(buffer, static_cast<std::size_t>(length));
        } while (optionOf(router.get(), ZMQ_RCVMORE) != 0);
        return frames;
    }

    void send(const Words& frames) {
        for (std::size_t index = 0; index < frames.size(); ++index) {
            const int flags = index + 1 < frames.size() ? ZMQ_SNDMORE : 0;
            zmq_send(router.get(), frames[index].data(), frames[index].size(), flags);
        }
    }

    ZmqContext context;
    const ZmqHandle router = context.socket(ZMQ_ROUTER);
    const std::chrono::milliseconds pause;
    std::map<std::string, Words> previous; ///< by the client's connection
    unsigned served = 0;
};

void misbehave(const Words& arguments) {
    Misbehaving server({arguments.begin() + 1, arguments.end()}, std::chrono::milliseconds(std::stoi(arguments.at(0))));
    record("ready");
    while (!inputEndsWithin(std::chrono::milliseconds(0))) {
        server.serveOne();
    }
}

void request(const Words& arguments) {
    socket::utils::Requester requester("requester", SocketEndpoint::FromString(arguments.at(0)));
    const std::chrono::milliseconds timeout(std::stoi(arguments.at(1)));
    const auto attempts = static_cast<unsigned>(std::stoul(arguments.at(2)));
    Letter letter{processName, 0, 1, false};
    record("ready");
    do {
        const std::string number = std::to_string(++letter.number);
        Text question;
        question.set_text(seal(letter));
        Text answer;
        record("request " + number);
        try {
            requester.request(question, answer, timeout, attempts);
            const auto answered = unseal(answer.text());
            record(answered ? "answer " + number + " " + answered->text() : "garbled");
        } catch (const socket::TimeoutException&) {
            record("unanswered " + number);
        }
    } while (!inputEndsWithin(betweenRequests));
}

const std::map<std::string, void (*)(const Words&)> roles{
    {"server", serve},        {"publisher", publish},     {"subscriber", subscribe}, {"client", ask},
    {"closer", sendAndClose}, {"misbehaving", misbehave}, {"requester", request}};

} // namespace

} // namespace rk::tests::crash

int main(int argc, char** argv) {
    using namespace rk::tests::crash;
    if (argc < 4 || roles.count(argv[1]) == 0) {
        std::cerr << "usage: crash_child ROLE NAME ARGUMENT...\n";
        return 2;
    }
    // Otherwise a suspended process would survive the end of its run.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    processName = argv[2];
    try {
        setUpNetwork();
        roles.at(argv[1])({argv + 3, argv + argc});
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        record(std::string("error ") + failure.what());
        return EXIT_FAILURE;
    }
}
