#include "Steps.h"
#include "support/Endpoints.h"
#include "support/FakeMessage.h"
#include "support/messages.pb.h"

#include <rk/socket/PollSet.h>
#include <rk/socket/utils/Requester.h>

#include <zmq.h>

#include <thread>

namespace rk::tests {

namespace {

std::vector<Step> exchange(Transport::Transport transport) {
    const Pair pair(transport);
    return pair.with({send(pair.client, "question"), poll(pair.server, 2000, PollResult::Input),
                      receive(pair.server, "question"), send(pair.server, "answer"), receive(pair.client, "answer"),
                      close(pair.client), close(pair.server)});
}

/// Uses inproc, where a subscription arrives as soon as the publisher polls its socket.
std::vector<Step> publish() {
    const auto endpoint = freshEndpoint(Transport::Inproc);
    const PartyPointer publisher = party("the one who publishes", Protocol::Pub);
    const PartyPointer subscriber = party("the one who subscribes", Protocol::Sub);
    return {construct(publisher),
            construct(subscriber),
            create(publisher),
            setInternalFifoSize(publisher),
            connect(publisher, endpoint, 0),
            create(subscriber),
            setInternalFifoSize(subscriber),
            connect(subscriber, endpoint, 2000),
            poll(publisher, 0, PollResult::Timeout),
            send(publisher, "first"),
            send(publisher, "second"),
            send(publisher, "third"),
            poll(subscriber, 2000, PollResult::Input),
            receive(subscriber, "first"),
            flush(subscriber),
            flush(subscriber),
            poll(subscriber, 0, PollResult::Timeout),
            destroy(subscriber),
            destroy(publisher)};
}

std::vector<Step> open(Protocol::Protocol pattern, Transport::Transport transport) {
    const PartyPointer one = party("the one who is alone", pattern);
    const auto endpoint = freshEndpoint(transport);
    return {construct(one), createAndConnect(one, endpoint, 100),
            call("lastEndpoint", one, [=] { require(one->socket->lastEndpoint() == endpoint, "another endpoint"); }),
            close(one), destroy(one)};
}

/// The injected ZeroMQ creates a socket for an invalid pattern.
std::vector<Step> unknownPattern() {
    const PartyPointer one = party("the one who is alone", static_cast<Protocol::Protocol>(7));
    const auto endpoint = freshEndpoint(Transport::Tcp);
    Step step = connect(one, endpoint, 0);
    step.debug = {"debug: Connecting " + one->header() + ", [undef protocol] to " + endpoint.toString(Protocol::Undef)};
    step = throwing(step, "Socket: Socket type not handled");
    return {construct(one), create(one), step, destroy(one)};
}

template <class Message>
Step sendProtoBuf(const PartyPointer& party, const Message& message) {
    return call("sendProtoBuf", party, [=] {
        Message copy = message;
        party->socket->sendProtoBuf(&copy);
    });
}

template <class Message>
Step receiveProtoBuf(const PartyPointer& party, unsigned int size) {
    return call("receiveProtoBuf", party, [=] {
        Message message;
        party->socket->receiveProtoBuf(&message, size);
    });
}

Text textOf(const std::string& content) {
    Text message;
    message.set_text(content);
    return message;
}

std::vector<Step> protobuf() {
    const Pair pair(Transport::Inproc);
    const PartyPointer server = pair.server;
    const PartyPointer client = pair.client;
    const std::string header = server->header();
    const Text question = textOf("What is it that takes longer than a short text?");
    return pair.with({
        throwing(call("sendProtoBuf", client, [=] { client->socket->sendProtoBuf(nullptr); }),
                 "Socket: Cannot send NULL message"),
        throwing(call("receiveProtoBuf", client, [=] { client->socket->receiveProtoBuf(nullptr, 1); }),
                 "Socket: Cannot receive on a NULL message"),
        throwing(receiveProtoBuf<Text>(server, 0), header + ": Wrong receive buffer size"),
        throwing(sendProtoBuf(client, Command()),
                 client->header() + ": Cannot send message: not initialized: [id][header]"),
        throwing(call("sendProtoBuf", client, [=] { client->socket->sendProtoBuf(FakeMessage(2147483648UL, 0)); }),
                 client->header() + ": Cannot send message: 2147483648 bytes serialized, at most 2147483647 possible"),
        sendProtoBuf(client, question),
        receiveProtoBuf<Text>(server, 100),
        sendProtoBuf(server, question),
        throwing(receiveProtoBuf<Command>(client, 100), client->header() + ": Failed deserializing message"),
        sendProtoBuf(client, textOf(std::string(98, '-'))),
        receiveProtoBuf<Text>(server, 100),
        sendProtoBuf(server, textOf(std::string(99, '-'))),
        throwing(receiveProtoBuf<Text>(client, 50),
                 client->header() + ": Receive buffer size too small: Required: 101, Actual: 100"),
    });
}

std::vector<Step> closedSocket() {
    const PartyPointer nobody = party("the one who is closed", Protocol::Req);
    const auto connecting = call("connect", nobody, [=] { nobody->socket->connect({}, 0); });
    return {construct(nobody),
            call("debugString", nobody, [=] { require(nobody->socket->debugString() == nobody->header(), "another"); }),
            throwing(connecting, "Socket: Cannot connect a NULL socket"),
            throwing(send(nobody, ""), "Socket: Cannot send on a NULL socket"),
            throwing(receive(nobody, ""), "Socket: Cannot receive on a NULL socket"),
            throwing(poll(nobody, 0, PollResult::Timeout), "Socket: Cannot poll a NULL socket"),
            close(nobody),
            destroy(nobody)};
}

std::vector<Step> pollSet() {
    const Pair pair(Transport::Inproc);
    const PartyPointer server = pair.server;
    const PartyPointer client = pair.client;
    const auto set = std::make_shared<socket::PollSet>();
    const auto wait = [=](std::chrono::milliseconds timeout) {
        return call("wait", server, [=] { set->wait(timeout); });
    };
    const auto refusing = [=](const std::string& text, std::function<void()> add) {
        return refused(call("add", server, std::move(add)), "std::invalid_argument", text);
    };
    return pair.with({wait(std::chrono::milliseconds(0)),
                      call("add", server,
                           [=] {
                               const std::string answer = "a reply that is longer than a short text";
                               set->add(*server->socket, [=] {
                                   const Unwatched unwatched;
                                   char buffer[100];
                                   server->socket->receive(buffer, sizeof buffer);
                                   server->socket->send(answer);
                               });
                           }),
                      refusing("Cannot poll without a handler", [=] { set->add(*server->socket, nullptr); }),
                      refusing("Cannot poll descriptor -1", [=] { set->add(-1, [] {}); }),
                      wait(std::chrono::milliseconds(0)), send(client, "question"),
                      wait(std::chrono::milliseconds(2000)),
                      call("remove", server, [=] { set->remove(*server->socket); }), close(client), close(server)});
}

/// Echoes requests until it is destroyed.
class EchoServer {
public:
    explicit EchoServer(const socket::SocketEndpoint& endpoint) {
        void* const server = zmq_socket(context, ZMQ_REP);
        zmq_bind(server, endpoint.toString(Protocol::Rep).c_str());
        thread = std::thread([server] {
            char buffer[256];
            for (int size = 0; (size = zmq_recv(server, buffer, sizeof buffer, 0)) >= 0;) {
                zmq_send(server, buffer, static_cast<std::size_t>(size), 0);
            }
            zmq_close(server);
        });
    }
    ~EchoServer() {
        zmq_ctx_shutdown(context);
        thread.join();
        zmq_ctx_term(context);
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;

private:
    void* const context = zmq_ctx_new();
    std::thread thread;
};

std::vector<Step> requests() {
    using socket::utils::Requester;
    using std::chrono::milliseconds;
    const auto endpoint = freshEndpoint(Transport::Ipc);
    const auto nobody = freshEndpoint(Transport::Ipc);
    const auto server = std::make_shared<std::unique_ptr<EchoServer>>();
    const PartyPointer client = party("the one who asks", Protocol::Req);
    const auto requester = std::make_shared<std::unique_ptr<Requester>>();
    const auto construct = [=](const socket::SocketEndpoint& target) {
        return call("Requester", client, [=] { *requester = std::make_unique<Requester>(client->name, target); });
    };
    const auto ask = [=](const socket::SocketEndpoint& target, milliseconds timeout, unsigned int attempts) {
        Step step = call("request", client, [=] {
            const Text question = textOf("What is it that takes longer than a short text?");
            Text answer;
            (*requester)->request(question, answer, timeout, attempts);
            require(answer.text() == question.text(), "another answer");
        });
        step.endpoint = target.toString(Protocol::Req);
        return step;
    };
    Step first = ask(endpoint, milliseconds(5000), 1);
    first.debug = linesOfConnect(*client, endpoint);
    Step unanswered = refused(ask(nobody, milliseconds(1), 2), "rk::socket::TimeoutException",
                              client->header() + ": No reply from " + nobody.toString(Protocol::Req) +
                                  " within 1 ms, attempts made: 2");
    for (int attempt = 0; attempt < 2; ++attempt) {
        for (const std::string& line : linesOfConnect(*client, nobody)) {
            unanswered.debug.push_back(line);
        }
    }
    return {call("ask", nullptr,
                 [=] {
                     const Unwatched unwatched;
                     server->reset();
                     *server = std::make_unique<EchoServer>(endpoint);
                 }),
            construct(endpoint),
            first,
            ask(endpoint, milliseconds(5000), 1),
            refused(ask(endpoint, milliseconds(1), 0), "std::invalid_argument",
                    client->header() + ": A request needs an attempt of at least 1 ms"),
            construct(nobody),
            unanswered,
            call("~Requester", client, [=] { requester->reset(); })};
}

std::vector<Step> jammedRequest(Transport::Transport transport) {
    const Pair pair(transport);
    return pair.with({send(pair.client, "question"), jammed(send(pair.client, "question"), pair.endpoint)});
}

std::vector<Step> jammedReply(Transport::Transport transport) {
    const Pair pair(transport);
    return pair.with({send(pair.client, "question"), receive(pair.server, "question"),
                      jammed(timingOut(receive(pair.server, "nothing")), pair.endpoint)});
}

std::vector<Step> reset(Protocol::Protocol pattern) {
    const auto first = freshEndpoint(Transport::Tcp);
    const auto second = freshEndpoint(Transport::Ipc);
    const PartyPointer one = party("the one who is rebuilt", pattern);
    Step rebuild = call("resetConnections", one, [=] { one->socket->resetConnections(); });
    for (const auto& endpoint : {first, second}) {
        const auto lines = linesOfConnect(*one, endpoint);
        rebuild.debug.insert(rebuild.debug.end(), lines.begin(), lines.end());
    }
    return {construct(one), create(one), connect(one, first, 100), connect(one, second, 0), rebuild, destroy(one)};
}

} // namespace

std::vector<Scenario> exchangeScenarios() {
    return {
        {"request and reply, tcp", [] { return exchange(Transport::Tcp); }, false},
        {"request and reply, ipc", [] { return exchange(Transport::Ipc); }, false},
        {"request and reply, inproc", [] { return exchange(Transport::Inproc); }, false},
        {"publisher, ipc", [] { return open(Protocol::Pub, Transport::Ipc); }, true},
        {"subscriber, tcp", [] { return open(Protocol::Sub, Transport::Tcp); }, false},
        {"unknown pattern", unknownPattern, false},
        {"publish and subscribe, inproc", publish, false},
        {"protobuf", protobuf, false},
        {"closed socket", closedSocket, true},
        {"requester", requests, false},
        {"set of sockets", pollSet, false},
        {"jammed request, tcp", [] { return jammedRequest(Transport::Tcp); }, false},
        {"jammed request, inproc", [] { return jammedRequest(Transport::Inproc); }, false},
        {"jammed reply, tcp", [] { return jammedReply(Transport::Tcp); }, false},
        {"jammed reply, ipc", [] { return jammedReply(Transport::Ipc); }, false},
        {"reset, publisher", [] { return reset(Protocol::Pub); }, false},
        {"reset, subscriber", [] { return reset(Protocol::Sub); }, false},
        {"reset, reply", [] { return reset(Protocol::Rep); }, false},
        {"reset, request", [] { return reset(Protocol::Req); }, false},
    };
}

} // namespace rk::tests
