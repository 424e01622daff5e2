#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"

// Listeners with any number of endpoints.

namespace rk::tests {

namespace {

class Listeners : public testing::TestWithParam<int> {
protected:
    Listeners() {
        for (int number = 0; number < GetParam(); ++number) {
            endpoints.push_back(freshEndpoint(static_cast<Transport::Transport>(1 + number * 7 % 3)));
        }
    }

    void addAll(RecordingListener& listener) {
        for (const SocketEndpoint& endpoint : endpoints) {
            ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Req), error)) << error;
        }
    }

    /// Returns the calls that bind the endpoints, in order.
    calls::Lines binds() const {
        calls::Lines lines;
        for (const SocketEndpoint& endpoint : endpoints) {
            lines.push_back("zmq_bind " + endpoint.toString(Protocol::Rep));
        }
        return lines;
    }

    const ContextOfTheProcess context;
    std::vector<SocketEndpoint> endpoints;
    std::string error;
    StandIn standIn;
};

INSTANTIATE_TEST_SUITE_P(Of, Listeners, testing::Values(1, 2, 3, 4, 5, 7, 11, 20));

} // namespace

TEST_P(Listeners, ConnectsInOrderAtEveryStart) {
    RecordingListener listener(Protocol::Rep);
    addAll(listener);
    for (int round = 0; round < 3; ++round) {
        standIn.journal().clear();
        ASSERT_TRUE(listener.start(error)) << error;
        EXPECT_EQ(endpoints.size(), standIn.journal().count("debug: Connected"));
        EXPECT_EQ(binds(), calls::once(standIn.journal().linesWith("zmq_bind")));
        ASSERT_TRUE(listener.stop(error)) << error;
    }
}

TEST_P(Listeners, RebuildsInOrderEveryTime) {
    RecordingListener listener(Protocol::Rep);
    addAll(listener);
    ASSERT_TRUE(listener.start(error)) << error;
    listener.setHandler([](auto&, const auto&) {});
    for (int round = 0; round < 3; ++round) {
        for (const SocketEndpoint& endpoint : endpoints) {
            NativeSocket client(Protocol::Req, endpoint);
            standIn.journal().clear();
            client.send("");
            ASSERT_TRUE(standIn.journal().waitFor("debug: Connected", endpoints.size()));
            EXPECT_EQ(binds(), calls::once(standIn.journal().linesWith("zmq_bind")));
            EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
            EXPECT_EQ(1U, standIn.journal().count(calls::repairWarning("service")));
        }
    }
    listener.setHandler(echo);
    for (const SocketEndpoint& endpoint : endpoints) {
        EXPECT_EQ("question", ask(endpoint, "question"));
    }
}

} // namespace rk::tests
