#include "ScenarioList.h"
#include "Steps.h"
#include "support/Endpoints.h"
#include "support/messages.pb.h"

namespace rk::tests {

namespace {

namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

std::vector<Step> exchange(Transport::Transport transport) {
    const auto endpoint = freshEndpoint(transport);
    const PartyPointer server = party("the one who answers", Protocol::Rep);
    const PartyPointer client = party("the one who asks", Protocol::Req);
    return {construct(server),
            construct(client),
            createAndConnect(server, endpoint, 2000),
            createAndConnect(client, endpoint, 2000),
            send(client, "question"),
            poll(server, 2000, PollResult::Input),
            receive(server, "question"),
            send(server, "answer"),
            receive(client, "answer"),
            close(client),
            close(server),
            destroy(client),
            destroy(server)};
}

/// In-process, where a subscription has arrived once the publisher has looked at its socket.
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
    return {construct(one), createAndConnect(one, freshEndpoint(transport), 100), close(one), destroy(one)};
}

/// 0MQ is made to give a socket for what is no pattern.
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
    const auto endpoint = freshEndpoint(Transport::Inproc);
    const PartyPointer server = party("the one who answers", Protocol::Rep);
    const PartyPointer client = party("the one who asks", Protocol::Req);
    const std::string header = server->header();
    const Text question = textOf("What is it that takes longer than a short text?");
    return {construct(server),
            construct(client),
            createAndConnect(server, endpoint, 2000),
            createAndConnect(client, endpoint, 2000),
            throwing(call("sendProtoBuf", client, [=] { client->socket->sendProtoBuf(nullptr); }),
                     "Socket: Cannot send NULL message"),
            throwing(call("receiveProtoBuf", client, [=] { client->socket->receiveProtoBuf(nullptr, 1); }),
                     "Socket: Cannot receive on a NULL message"),
            throwing(receiveProtoBuf<Text>(server, 0), header + ": Wrong receive buffer size"),
            throwing(sendProtoBuf(client, Command()),
                     client->header() + ": Cannot send message: not initialized: [id][header]"),
            sendProtoBuf(client, question),
            receiveProtoBuf<Text>(server, 100),
            sendProtoBuf(server, question),
            throwing(receiveProtoBuf<Command>(client, 100), client->header() + ": Failed deserializing message"),
            sendProtoBuf(client, textOf(std::string(98, '-'))),
            receiveProtoBuf<Text>(server, 100),
            sendProtoBuf(server, textOf(std::string(99, '-'))),
            throwing(receiveProtoBuf<Text>(client, 50),
                     client->header() + ": Receive buffer size too small: Required: 101, Actual: 100"),
            destroy(client),
            destroy(server)};
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
    };
}

} // namespace rk::tests
