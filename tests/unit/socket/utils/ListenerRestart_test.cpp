#include "support/BeforeJoin.h"
#include "support/Endpoints.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using socket::utils::SocketListener;
using testing::ElementsAre;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

class ListenerRestart : public testing::TestWithParam<Transport::Transport> {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    std::string error;
};

INSTANTIATE_TEST_SUITE_P(On, ListenerRestart, testing::Values(Transport::Tcp, Transport::Ipc, Transport::Inproc),
                         [](const auto& tested) { return Transport::ToString(tested.param); });

/// Notes how it is stopped and started, and answers as it is told.
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

TEST_P(ListenerRestart, StopsAndStarts100Times) {
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    listener.serve(endpoint);
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(listener.stop(error)) << error;
        ASSERT_TRUE(listener.start(error)) << error;
        ASSERT_EQ("question", ask(endpoint, "question")) << round;
    }
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_P(ListenerRestart, FinishesTheHandlerAtWork) {
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    std::promise<void> finish;
    listener.setHandler([&](Text& request, const std::shared_ptr<Socket>& socket) {
        finish.get_future().wait();
        echo(request, socket);
    });
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    client.send("");
    ASSERT_TRUE(listener.waitForTexts(1));
    listener.setHandler(echo);
    standIn.journal().clear();

    const BeforeJoin hook([&] { finish.set_value(); });
    ASSERT_TRUE(listener.SocketListener::stop(error)) << error;
    ASSERT_TRUE(listener.start(error)) << error;

    EXPECT_EQ("zmq_send 0 bytes, flags 0", standIn.journal().lines().front());
    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
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

TEST_F(ListenerRestartAdding, StartsNothing) {
    EXPECT_TRUE(listener.addListenEndpoint("inproc://added", error));

    EXPECT_EQ("as it was", error);
    EXPECT_THAT(listener.calls, ElementsAre());
}

TEST_F(ListenerRestartAdding, KeepsServingWhenInvalid) {
    ASSERT_TRUE(listener.SocketListener::start(error)) << error;

    EXPECT_FALSE(listener.addListenEndpoint("", error));

    EXPECT_EQ("[Socket Listener rep] Invalid endpoint: Failed deserializing : cannot extract transport", error);
    EXPECT_THAT(listener.calls, ElementsAre());
}

TEST_F(ListenerRestartAdding, RevivesAnEnded) {
    RecordingListener ended(Protocol::Rep);
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    standIn.fail("zmq_poll", EFAULT);
    ended.serve(endpoint);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_close"));

    EXPECT_TRUE(ended.addListenEndpoint(text(freshEndpoint(Transport::Inproc)), error));

    EXPECT_EQ("", error);
    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerRestartAdding, MixesTransports) {
    RecordingListener server(Protocol::Rep);
    std::vector<SocketEndpoint> endpoints;
    for (const auto transport : {Transport::Tcp, Transport::Ipc, Transport::Inproc}) {
        endpoints.push_back(freshEndpoint(transport));
        ASSERT_TRUE(server.addListenEndpoint(text(endpoints.back()), error));
    }

    ASSERT_TRUE(server.start(error)) << error;

    for (const SocketEndpoint& endpoint : endpoints) {
        EXPECT_EQ("question", ask(endpoint, "question"));
    }
}

TEST_F(ListenerRestartAdding, TakesADuplicate) {
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
