#include "support/NativeSocket.h"
#include "support/RecordingListener.h"

#include <algorithm>
#include <list>
#include <stdexcept>
#include <thread>

namespace rk::tests {

namespace {

const std::string failed = "error: [Socket Listener sub] Failed handling received message: ";

std::string serialized(const std::string& content) {
    Text text;
    text.set_text(content);
    return text.SerializeAsString();
}

class ListenerSubscribe : public testing::Test {
protected:
    /// Waits for the subscription: messages published from now on arrive.
    void subscribe() {
        publisher.bind(endpoint);
        listener.serve(endpoint);
        publisher.join();
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    }

    void expectNoRepair() {
        EXPECT_EQ(0U, standIn.journal().count("warning: "));
        EXPECT_EQ(0U, standIn.journal().count("zmq_close"));
        EXPECT_EQ(standIn.journal().count("zmq_poll"), standIn.journal().count("zmq_poll 1 items, events 1, 1000 ms"));
    }

    const ContextOfTheProcess context;
    NativeSocket publisher{Protocol::Pub};
    StandIn standIn;
    RecordingListener listener{Protocol::Sub};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    std::string error;
};

class ListenerSubscribeOver : public ListenerSubscribe, public testing::WithParamInterface<Transport::Transport> {};

INSTANTIATE_TEST_SUITE_P(Transport, ListenerSubscribeOver, everyTransport(), nameOfTransport);

} // namespace

TEST_F(ListenerSubscribe, MakesTheCallsInOrder) {
    const std::string address = endpoint.toString(Protocol::Sub);
    listener.setHandler([this](Text&, const std::shared_ptr<Socket>&) { standIn.journal().add("handleMessage"); });
    subscribe();
    publisher.send("");
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll", 2));
    ASSERT_TRUE(listener.stop(error));

    std::vector<std::string> lines = standIn.journal().lines();
    const auto connected = std::find(lines.begin(), lines.end(), "debug: Connected [Socket service]");
    ASSERT_NE(lines.end(), connected);
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect " + address));
    lines.erase(lines.begin(), connected + 1);
    EXPECT_THAT(lines, ElementsAre("zmq_poll 1 items, events 1, 1000 ms", "zmq_recv 131072 bytes, flags 0",
                                   "handleMessage", "zmq_poll 1 items, events 1, 1000 ms", "zmq_close"));
}

TEST_F(ListenerSubscribe, ReceivesInOrder) {
    subscribe();

    for (const std::string text : {"one", "", "three"}) {
        publisher.send(serialized(text));
    }

    ASSERT_TRUE(listener.waitForTexts(3));
    EXPECT_THAT(listener.texts(), ElementsAre("one", "", "three"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
    expectNoRepair();
}

TEST_F(ListenerSubscribe, ContinuesAfterAnException) {
    listener.setHandler([](Text& text, const std::shared_ptr<Socket>&) { throw std::runtime_error(text.text()); });
    subscribe();

    publisher.send(serialized("no luck"));
    publisher.send(serialized("again"));

    ASSERT_TRUE(standIn.journal().waitFor("error: ", 2));
    EXPECT_THAT(standIn.journal().linesWith("error: "), ElementsAre(failed + "no luck", failed + "again"));
    expectNoRepair();
}

TEST_F(ListenerSubscribe, ContinuesAfterBadMessages) {
    subscribe();

    publisher.send("\xff");
    publisher.send(std::string(131073, 'x'));
    publisher.send(serialized("news"));

    ASSERT_TRUE(listener.waitForTexts(1));
    EXPECT_THAT(listener.texts(), ElementsAre("news"));
    EXPECT_THAT(
        standIn.journal().linesWith("error: "),
        ElementsAre(failed + "[Socket service]: Failed deserializing message",
                    failed + "[Socket service]: Receive buffer size too small: Required: 131073, Actual: 131072"));
    expectNoRepair();
}

TEST_F(ListenerSubscribe, EndsWhenAPollReportsNoInput) {
    subscribe();
    standIn.answer("zmq_poll", 1);

    publisher.send("");

    EXPECT_TRUE(standIn.journal().waitFor("zmq_close"));
    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket Listener sub] Poll error on socket. Aborting listener thread."));
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
}

TEST_P(ListenerSubscribeOver, HearsEveryPublisher) {
    std::list<NativeSocket> publishers;
    for (const std::string name : {"one", "two", "three"}) {
        const SocketEndpoint place = freshEndpoint(GetParam());
        publishers.emplace_back(Protocol::Pub).bind(place);
        ASSERT_TRUE(listener.addListenEndpoint(place.toString(Protocol::Sub), error));
    }
    ASSERT_TRUE(listener.start(error)) << error;

    // A publisher drops messages until a subscriber is connected.
    for (const std::string name : {"one", "two", "three"}) {
        const auto arrived = [&] {
            const std::vector<std::string> texts = listener.texts();
            return std::count(texts.begin(), texts.end(), name) > 0;
        };
        while (!arrived()) {
            publishers.front().send(serialized(name));
            std::this_thread::yield();
        }
        publishers.pop_front();
    }

    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
