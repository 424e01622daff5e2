#include "ScenarioList.h"
#include "Steps.h"
#include "support/Endpoints.h"

namespace rk::tests {

namespace {

namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

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

/// A bit of pause after each block but the first.
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

} // namespace

std::vector<Scenario> tuningScenarios() {
    return {
        {"statistics", statistics, false},
        {"capping", capping, true},
    };
}

} // namespace rk::tests
