#include "support/RecordingListener.h"

namespace rk::tests {

namespace {

using socket::utils::SocketListener;

class ListenerRestart : public ListenerTest, public testing::WithParamInterface<Transport::Transport> {
protected:
    ListenerRestart() : ListenerTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(On, ListenerRestart, everyTransport(), nameOfTransport);

/// Overrides `start` and `stop`, records the calls, and returns the configured result.
class OverridingListener : public RecordingListener {
public:
    using RecordingListener::RecordingListener;

    bool stop(std::string& error) override {
        calls.emplace_back("stop");
        error = "from stop";
        return false;
    }
    bool start(std::string& error) override {
        calls.push_back("start, given \"" + error + "\"");
        error = "from start";
        return startResult;
    }

    std::vector<std::string> calls;
    bool startResult = true;
};

class ListenerRestartAdding : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    OverridingListener listener{Protocol::Rep};
    std::string error = "as it was";
};

std::string text(const SocketEndpoint& endpoint) {
    return endpoint.toString(Protocol::Req);
}

} // namespace

TEST_P(ListenerRestart, AddsAnEndpoint100Times) {
    std::vector<SocketEndpoint> endpoints{freshEndpoint(GetParam())};
    listener.serve(endpoints.front());
    for (int round = 0; round < 100; ++round) {
        endpoints.push_back(freshEndpoint(GetParam()));

        ASSERT_TRUE(listener.addListenEndpoint(text(endpoints.back()), error)) << error;

        ASSERT_EQ("", error);
        ASSERT_EQ("old", ask(endpoints.front(), "old")) << round;
        ASSERT_EQ("last", ask(endpoints[endpoints.size() - 2], "last")) << round;
        ASSERT_EQ("new", ask(endpoints.back(), "new")) << round;
    }
    EXPECT_EQ(0U, standIn.journal().count("error: "));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
}

TEST_F(ListenerRestartAdding, ReturnsStartsResult) {
    ASSERT_TRUE(listener.SocketListener::start(error)) << error;
    for (const bool result : {true, false}) {
        listener.startResult = result;
        listener.calls.clear();

        EXPECT_EQ(result, listener.addListenEndpoint("inproc://added", error));

        EXPECT_EQ("from start", error);
        EXPECT_THAT(listener.calls, ElementsAre("stop", "start, given \"from stop\""));
    }
}

TEST_F(ListenerRestartAdding, AcceptsADuplicate) {
    RecordingListener server(Protocol::Rep);
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    server.serve(endpoint);
    standIn.journal().clear();

    EXPECT_TRUE(server.addListenEndpoint(text(endpoint), error)) << error;

    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(1U, standIn.journal().count("debug: Connecting [Socket service]"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
