#include "Steps.h"

#include "support/Endpoints.h"

namespace rk::tests {

using socket::Socket;
using socket::SocketEndpoint;
using socket::ClosePolicy::DropPending;

void require(bool condition, const std::string& text) {
    if (!condition) {
        throw Wrong{text};
    }
}

PartyPointer party(const std::string& name, socket::Protocol::Protocol pattern) {
    return std::make_shared<Party>(name, pattern);
}

Pair::Pair(socket::Transport::Transport transport) : endpoint(freshEndpoint(transport)) {}

std::vector<Step> Pair::with(const std::vector<Step>& steps) const {
    std::vector<Step> all{construct(server), construct(client), createAndConnect(server, endpoint, 2000),
                          createAndConnect(client, endpoint, 2000)};
    all.insert(all.end(), steps.begin(), steps.end());
    all.insert(all.end(), {destroy(client), destroy(server)});
    return all;
}

std::vector<std::string> linesOfConnect(const Party& party, const SocketEndpoint& endpoint) {
    static const char* const phrases[] = {"", ", sending to ", ", subscribing to ", ", listening on ", ", sending to "};
    return {"debug: Connecting " + party.header() + phrases[party.pattern % 5] + endpoint.toString(party.pattern),
            "debug: Connected " + party.header()};
}

Step construct(const PartyPointer& party) {
    return call("construct", party, [=] {
        if (!party->socket) {
            party->socket = std::make_unique<Socket>(party->name, DropPending);
        }
    });
}

Step create(const PartyPointer& party) {
    return call("create", party, [=] { party->socket->create(party->pattern); });
}

Step connect(const PartyPointer& party, const SocketEndpoint& endpoint, unsigned int timeout) {
    return {"connect", party, [=] { party->socket->connect(endpoint, timeout); }, {}, linesOfConnect(*party, endpoint)};
}

Step createAndConnect(const PartyPointer& party, const SocketEndpoint& endpoint, unsigned int timeout) {
    return {"createAndConnect",
            party,
            [=] { party->socket->createAndConnect(party->pattern, endpoint, timeout); },
            {},
            linesOfConnect(*party, endpoint)};
}

Step send(const PartyPointer& party, const std::string& text) {
    return call("send", party, [=] { party->socket->send(text); });
}

Step receive(const PartyPointer& party, const std::string& text) {
    return call("receive", party, [=] {
        char buffer[100];
        const int size = party->socket->receive(buffer, sizeof buffer);
        require(std::string(buffer, static_cast<std::size_t>(size)) == text, "another text is received");
    });
}

Step close(const PartyPointer& party) {
    return call("close", party, [=] { party->socket->close(); });
}

Step destroy(const PartyPointer& party) {
    return call("destroy", party, [=] { party->socket.reset(); });
}

Step poll(const PartyPointer& party, unsigned int timeout, socket::PollResult::PollResult result) {
    return call("poll", party, [=] {
        std::string error;
        const auto polled = party->socket->poll(timeout, error);
        if (polled == socket::PollResult::Failure) {
            throw Reported{error};
        }
        require(polled == result, "the poll finds something else");
    });
}

Step flush(const PartyPointer& party) {
    Step step = call("flushIncomingMessages", party, [=] { party->socket->flushIncomingMessages(); });
    step.endsEarly = true;
    return step;
}

Step setInternalFifoSize(const PartyPointer& party) {
    return call("setInternalFifoSize", party, [=] { party->socket->setInternalFifoSize(100); });
}

Step call(const std::string& operation, const PartyPointer& party, std::function<void()> run) {
    return {operation, party, std::move(run)};
}

Step throwing(Step step, const std::string& text) {
    return refused(std::move(step), "std::runtime_error", text);
}

Step refused(Step step, const std::string& type, const std::string& text) {
    step.normal = {Outcome::Kind::Throws, type, text, {}};
    return step;
}

Step timingOut(Step step) {
    const std::string text = "Receive error: Resource temporarily unavailable on " + step.party->header();
    return refused(std::move(step), "rk::socket::TimeoutException", text);
}

Step jammed(Step step, const SocketEndpoint& endpoint) {
    step.normal.lines = {"warning: " + step.party->header() +
                         " Attempting reset of the connections to preserve 0MQ state machine integrity"};
    step.debug = linesOfConnect(*step.party, endpoint);
    return step;
}

} // namespace rk::tests
