#include "support/NativeSocket.h"
#include "support/RecordingListener.h"

#include <zmq.h>

#include <cerrno>
#include <future>
#include <new>
#include <optional>
#include <utility>

namespace rk::tests {

namespace {

std::string handlingError(const std::string& reason) {
    return "error: [Socket Listener rep] Failed handling received message: " + reason;
}

class ListenerHandler : public ListenerTest, public testing::WithParamInterface<Transport::Transport> {
protected:
    ListenerHandler() : ListenerTest(GetParam()) {}

    void SetUp() override {
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
        client.emplace(Protocol::Req);
        client->connect(endpoint);
        standIn.journal().clear();
    }

    /// Expects the listener to serve new clients without any repair.
    void expectSoundService() {
        EXPECT_EQ("question", ask(endpoint, "question"));
        EXPECT_EQ(0U, standIn.journal().count("warning: "));
        EXPECT_EQ(0U, standIn.journal().count("zmq_socket 4"));
    }

    std::optional<NativeSocket> client;
};

INSTANTIATE_TEST_SUITE_P(Over, ListenerHandler, everyTransport(), nameOfTransport);

} // namespace

TEST_P(ListenerHandler, MakesTheCallsInOrder) {
    listener.setMaker([this] {
        standIn.journal().add("createMessage");
        return std::make_shared<Text>();
    });
    listener.setHandler([this](Text& text, const std::shared_ptr<Socket>& socket) {
        standIn.journal().add("handleMessage");
        echo(text, socket);
    });

    client->send("");
    EXPECT_EQ("", client->receive());

    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms"));
    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("createMessage", "zmq_recv 131072 bytes, flags 0", "handleMessage",
                            "zmq_send 0 bytes, flags 0", "zmq_poll 1 items, events 3, 0 ms",
                            "zmq_poll 1 items, events 1, 1000 ms"));
}

TEST_P(ListenerHandler, RepliesBeforeItThrows) {
    listener.setHandler([](Text& text, const std::shared_ptr<Socket>& socket) {
        echo(text, socket);
        throw std::bad_alloc();
    });

    client->send("");

    EXPECT_EQ("", client->receive());
    EXPECT_TRUE(standIn.journal().waitFor(handlingError("std::bad_alloc")));
    expectSoundService();
}

TEST_P(ListenerHandler, RepliesOnceWhenItRepliesTwice) {
    listener.setHandler([](Text& text, const std::shared_ptr<Socket>& socket) {
        echo(text, socket);
        echo(text, socket);
    });

    client->send("");

    EXPECT_EQ("", client->receive());
    EXPECT_TRUE(standIn.journal().waitFor(
        handlingError("Send error: Operation cannot be accomplished in current state on [Socket service]")));
    expectSoundService();
}

TEST_P(ListenerHandler, OutlivesItsClient) {
    std::promise<void> gone;
    listener.setHandler(echoAfter(gone));
    client->send("");
    ASSERT_TRUE(listener.waitForTexts(1));
    listener.setHandler(echo);

    client.reset();
    gone.set_value();

    expectSoundService();
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

/// The handler gets each part separately. ZeroMQ accepts a reply only after the last one.
TEST_P(ListenerHandler, AcceptsRequestsOfSeveralParts) {
    client->send("", ZMQ_SNDMORE);
    client->send("");

    EXPECT_EQ("", client->receive());

    EXPECT_THAT(listener.texts(), ElementsAre("", ""));
    expectSoundService();
}

TEST_P(ListenerHandler, RetriesAFailedReceive) {
    for (const auto& [number, text] :
         {std::pair(EAGAIN, "Receive error: Resource temporarily unavailable on [Socket service]"),
          std::pair(ETERM, "Context terminated in recv() for socket [Socket service]")}) {
        standIn.journal().clear();
        standIn.fail("zmq_recv", number);

        client->send("");

        EXPECT_EQ("", client->receive());
        EXPECT_THAT(standIn.journal().linesWith("error: "), ElementsAre(handlingError(text)));
        expectSoundService();
    }
}

TEST_P(ListenerHandler, RepliesAfterAnIdlePoll) {
    {
        const PollsRunOut none;
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms", 3));
    }

    expectSoundService();

    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
