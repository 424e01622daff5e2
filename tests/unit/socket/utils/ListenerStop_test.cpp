#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/ThreadFaults.h"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace rk::tests {

namespace {

using socket::utils::SocketListener;
using Clock = std::chrono::steady_clock;

const std::string waitingPoll = "zmq_poll 1 items, events 1, 1000 ms";

class ListenerStop : public ListenerTest {
protected:
    /// Stops in real time. Returns how many polls begin after the call of `stop`.
    std::size_t pollsAfterStop(SocketListener& stopped) {
        std::size_t before = 0;
        const BeforeJoin hook([&] { before = standIn.journal().count(waitingPoll); });
        EXPECT_TRUE(stopped.SocketListener::stop(error)) << error;
        return standIn.journal().count(waitingPoll) - before;
    }
};

} // namespace

TEST_F(ListenerStop, TakesNoLongerThanAPoll) {
    listener.serve(endpoint);
    ASSERT_TRUE(standIn.journal().waitFor(waitingPoll));
    const Clock::time_point start = Clock::now();

    EXPECT_GE(1U, pollsAfterStop(listener));

    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST_F(ListenerStop, WaitsForTheRunningHandler) {
    std::promise<void> finish;
    listener.setHandler(echoAfter(finish));
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    ASSERT_TRUE(listener.waitForTexts(1));
    standIn.journal().clear();

    {
        const BeforeJoin hook([&] { finish.set_value(); });
        EXPECT_TRUE(listener.SocketListener::stop(error)) << error;
    }

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_send 0 bytes, flags 0", "zmq_poll 1 items, events 3, 0 ms", "zmq_close"));
}

TEST_F(ListenerStop, ServesTheRequestThatAPollFound) {
    std::promise<void> polled;
    std::promise<void> stopping;
    standIn.after("zmq_poll", [&] {
        standIn.after("zmq_poll", nullptr);
        polled.set_value();
        stopping.get_future().wait();
    });
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    listener.serve(endpoint);
    polled.get_future().wait();

    {
        const BeforeJoin hook([&] { stopping.set_value(); });
        EXPECT_TRUE(listener.SocketListener::stop(error)) << error;
    }

    EXPECT_EQ("", client.receive());
    EXPECT_EQ(1U, listener.texts().size());
    EXPECT_EQ(0U, standIn.journal().count("zmq_connect"));
}

TEST_F(ListenerStop, EndsDuringEndlessInput) {
    NativeSocket publisher(Protocol::Pub, endpoint);
    RecordingListener subscriber(Protocol::Sub);
    subscriber.serve(endpoint);
    std::atomic<bool> stopped{false};
    std::thread flood([&] {
        while (!stopped) {
            publisher.send("");
        }
    });
    EXPECT_TRUE(subscriber.waitForTexts(100));

    EXPECT_GE(1U, pollsAfterStop(subscriber));

    stopped = true;
    flood.join();
}

TEST_F(ListenerStop, DoesNothingTheSecondTime) {
    listener.serve(endpoint);
    EXPECT_TRUE(listener.stop(error));
    standIn.journal().clear();
    error = "as it was";

    EXPECT_TRUE(listener.stop(error));

    EXPECT_EQ("", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST_F(ListenerStop, IsCalledByTheDestructor) {
    {
        BareListener bare;
        ASSERT_TRUE(bare.addListenEndpoint(endpoint.toString(Protocol::Rep), error));
        ASSERT_TRUE(bare.start(error)) << error;
        ASSERT_TRUE(standIn.journal().waitFor(waitingPoll));
        standIn.journal().clear();
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    EXPECT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Rep), error));
    EXPECT_TRUE(listener.start(error));
    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerStop, ReleasesTheSocket) {
    std::weak_ptr<Socket> released;
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        released = socket;
        echo(text, socket);
    });
    listener.serve(endpoint);
    ask(endpoint, "question");
    ASSERT_TRUE(standIn.journal().waitFor(waitingPoll, 2));
    EXPECT_FALSE(released.expired());

    ASSERT_TRUE(listener.stop(error));

    EXPECT_TRUE(released.expired());
}

} // namespace rk::tests
