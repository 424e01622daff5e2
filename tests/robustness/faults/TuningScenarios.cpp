#include "Steps.h"
#include "support/Endpoints.h"

#include <rk/socket/Network.h>

#include <stdexcept>

namespace rk::tests {

namespace {

constexpr int blocksPerPeriod = 50;

Step whileStatisticsRun(Step step) {
    step.debug = {"debug: [Socket " + step.party->name + "]: Rate is "};
    return step;
}

std::vector<Step> statistics() {
    const auto endpoint = freshEndpoint(Transport::Inproc);
    const PartyPointer publisher = party("the one who publishes", Protocol::Pub);
    const PartyPointer subscriber = party("the one who subscribes", Protocol::Sub);
    const auto count = [](const PartyPointer& party, int blocks) {
        return call("addBlockToStatistics", party, [=] {
            for (int block = 0; block < blocks; ++block) {
                party->socket->addBlockToStatistics(80000000);
            }
        });
    };
    const auto activate = [](const PartyPointer& party) {
        return call("activateStatistics", party, [=] { party->socket->activateStatistics(true); });
    };
    return {construct(publisher),
            construct(subscriber),
            whileStatisticsRun(count(publisher, blocksPerPeriod)),
            createAndConnect(publisher, endpoint, 0),
            createAndConnect(subscriber, endpoint, 2000),
            activate(publisher),
            activate(subscriber),
            poll(publisher, 0, PollResult::Timeout),
            count(subscriber, blocksPerPeriod - 1),
            send(publisher, "first"),
            whileStatisticsRun(receive(subscriber, "first")),
            count(publisher, blocksPerPeriod - 2),
            whileStatisticsRun(send(publisher, "second")),
            receive(subscriber, "second"),
            destroy(subscriber),
            destroy(publisher)};
}

/// A short pause after each block but the first.
std::vector<Step> capping() {
    const PartyPointer publisher = party("the one who publishes", Protocol::Pub);
    const auto pause = [&] {
        return call("handleBitRateCapping", publisher, [=] { publisher->socket->handleBitRateCapping(100); });
    };
    return {construct(publisher),
            createAndConnect(publisher, freshEndpoint(Transport::Inproc), 0),
            call("setTargetBitRate", publisher, [=] { publisher->socket->setTargetBitRate(1); }),
            pause(),
            pause(),
            send(publisher, std::string(100, '-')),
            send(publisher, std::string(100, '-')),
            destroy(publisher)};
}

Step set(const std::string& operation, const std::function<void()>& run) {
    return call("Network::" + operation, nullptr, run);
}

/// Two servers on the loopback interface, one by address and one by name.
std::vector<Step> network() {
    const auto endpoint = freshEndpoint(Transport::Tcp);
    const PartyPointer server = party("the one who answers", Protocol::Rep);
    const PartyPointer client = party("the one who asks", Protocol::Req);
    Step listen = createAndConnect(server, endpoint, 2000);
    listen.debug.front() =
        "debug: Connecting " + server->header() + ", listening on " + endpoint.toString(Protocol::Req);
    Step rebuild = call("resetConnections", server, [=] { server->socket->resetConnections(); });
    rebuild.debug = listen.debug;
    const auto limitSockets = [] {
        try {
            socket::Network::setMaxSockets(100);
        } catch (const std::invalid_argument&) {
            throw;
        } catch (const std::logic_error&) {
            // Steps are repeated after a fault, and the context exists by then.
        }
    };
    return {set("setMaxSockets", limitSockets),
            set("listenOn", [] { socket::Network::listenOn("lo"); }),
            set("setPeerTimeout", [] { socket::Network::setPeerTimeout(10); }),
            set("setMaxMessageSize", [] { socket::Network::setMaxMessageSize(1000); }),
            set("setQueueSize", [] { socket::Network::setQueueSize(10); }),
            set("setIpv6", [] { socket::Network::setIpv6(false); }),
            refused(set("setQueueSize", [] { socket::Network::setQueueSize(-1); }), "std::invalid_argument",
                    "Network: Queue size of -1 messages: at least 1, or 0 for no limit"),
            construct(server),
            construct(client),
            listen,
            createAndConnect(client, endpoint, 2000),
            send(client, "question"),
            receive(server, "question"),
            set("listenOn", [] { socket::Network::listenOn("localhost"); }),
            rebuild,
            set("setPeerTimeout", [] { socket::Network::setPeerTimeout(0); }),
            rebuild,
            refused(set("setMaxSockets", [] { socket::Network::setMaxSockets(100); }), "std::logic_error",
                    "Network: The limit of sockets cannot change after the first socket"),
            destroy(client),
            destroy(server)};
}

} // namespace

std::vector<Scenario> tuningScenarios() {
    return {
        {"network", network, false},
        {"statistics", statistics, false},
        {"capping", capping, true},
    };
}

} // namespace rk::tests
