#include "ScenarioList.h"
#include "Steps.h"
#include "support/Endpoints.h"

namespace rk::tests {

namespace {

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

std::vector<Scenario> repairScenarios() {
    return {
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
