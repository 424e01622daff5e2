#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/SystemSockets.h"

#include <rk/socket/Network.h>

#include <zmq.h>

#include <algorithm>

namespace rk::tests {

namespace {

bool isOption(const std::string& line) {
    return line.find("zmq_setsockopt ") == 0;
}

class ListenerSilence : public testing::Test {
protected:
    ~ListenerSilence() override {
        std::string ignored;
        listener.stop(ignored);
        Network::setSilenceLimit(0);
    }

    /// Returns the number of polls without input before each reconnect since the last message.
    std::vector<std::size_t> pauses() const {
        std::vector<std::size_t> result;
        std::size_t polls = 0;
        for (const std::string& line : standIn.journal().lines()) {
            if (line.find("zmq_poll ") == 0) {
                ++polls;
            } else if (line.find("zmq_disconnect ") == 0) {
                result.push_back(polls);
                polls = 0;
            } else if (line.find("zmq_recv ") == 0) {
                result.clear();
                polls = 0;
            }
        }
        return result;
    }

    std::vector<std::string> warnings() const { return standIn.journal().linesWith("warning: "); }

    static std::string warningAfter(unsigned int seconds) {
        return "warning: [Socket Listener on service]: Nothing received for " + std::to_string(seconds) +
               " s. Connecting again until something is.";
    }

    void publishUntilHeard(NativeSocket& publisher, const std::string& content) {
        Text text;
        text.set_text(content);
        const std::size_t before = listener.texts().size();
        while (listener.texts().size() == before) {
            publisher.join();
            publisher.send(text.SerializeAsString());
        }
    }

    const ContextOfTheProcess context;
    mutable StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string address = endpoint.toString(Protocol::Sub);
    RecordingListener listener{Protocol::Sub};
};

} // namespace

TEST_F(ListenerSilence, ReconnectsWithLongerPauses) {
    Network::setSilenceLimit(3);
    const PollsRunOut runOut;
    listener.serve(endpoint);

    ASSERT_TRUE(standIn.journal().waitFor("zmq_disconnect", 8));
    std::vector<std::size_t> first = pauses();
    first.resize(8);
    EXPECT_THAT(first, ElementsAre(3, 3, 6, 12, 24, 30, 30, 30));
    EXPECT_THAT(warnings(), ElementsAre(warningAfter(3)));
}

TEST_F(ListenerSilence, KeepsALongLimit) {
    Network::setSilenceLimit(40);
    const PollsRunOut runOut;
    listener.serve(endpoint);

    ASSERT_TRUE(standIn.journal().waitFor("zmq_disconnect", 3));
    std::vector<std::size_t> first = pauses();
    first.resize(3);
    EXPECT_THAT(first, ElementsAre(40, 40, 40));
}

TEST_F(ListenerSilence, ReconnectsEachButInproc) {
    Network::setSilenceLimit(1);
    const SocketEndpoint file = freshEndpoint(Transport::Ipc);
    const SocketEndpoint name = freshEndpoint(Transport::Inproc);
    std::string error;
    for (const SocketEndpoint& other : {file, name}) {
        ASSERT_TRUE(listener.addListenEndpoint(other.toString(Protocol::Sub), error));
    }
    {
        const PollsRunOut runOut;
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_connect", 5));
    }
    listener.stop(error);

    std::vector<std::string> lines = standIn.journal().lines();
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), warningAfter(1)));
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOption), lines.end());
    lines.resize(5);
    const std::string path = file.toString(Protocol::Sub);
    EXPECT_THAT(lines, ElementsAre(warningAfter(1), "zmq_disconnect " + path, "zmq_connect " + path,
                                   "zmq_disconnect " + address, "zmq_connect " + address));
}

TEST_F(ListenerSilence, TakesTheSettingsOfTheNetwork) {
    Network::setSilenceLimit(1);
    listener.serve(endpoint);
    Network::setPeerTimeout(3);
    {
        const PollsRunOut runOut;
        EXPECT_TRUE(standIn.journal().waitFor("zmq_setsockopt 79 = 3000 (4 bytes)"));
    }
    Network::setPeerTimeout(0);
}

TEST_F(ListenerSilence, EndsWithTheNextMessage) {
    Network::setSilenceLimit(3);
    NativeSocket publisher(Protocol::Pub, endpoint);
    {
        const PollsRunOut runOut;
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_disconnect", 4));
    }
    publishUntilHeard(publisher, "news");
    std::vector<std::size_t> first;
    {
        const PollsRunOut runOut;
        while (first.size() < 2) {
            first = pauses();
        }
    }

    first.resize(2);
    EXPECT_THAT(first, ElementsAre(3, 3));
    EXPECT_THAT(warnings(), ElementsAre(warningAfter(3), warningAfter(3)));
}

TEST_F(ListenerSilence, ReceivesAfterAWrongServer) {
    Network::setSilenceLimit(1);
    {
        const WrongServer wrong(endpoint);
        listener.serve(endpoint);
        EXPECT_TRUE(wrong.answerOne());
    }
    NativeSocket publisher(Protocol::Pub, endpoint);
    {
        const PollsRunOut runOut;
        ASSERT_TRUE(standIn.journal().waitFor("zmq_disconnect"));
    }
    publishUntilHeard(publisher, "right");

    EXPECT_EQ("right", listener.texts().front());
    EXPECT_EQ(1U, warnings().size());
}

TEST_F(ListenerSilence, RetriesFailedEndpoints) {
    Network::setSilenceLimit(1);
    NativeSocket publisher(Protocol::Pub, endpoint);
    {
        standIn.fail("zmq_connect", ENOMEM, 2);
        const PollsRunOut runOut;
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_connect", 3));
    }
    publishUntilHeard(publisher, "again");
    EXPECT_THAT(standIn.journal().linesWith("error: "), IsEmpty());
}

TEST_F(ListenerSilence, IsIgnoredWithoutALimit) {
    {
        const PollsRunOut runOut;
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll", 200));
    }
    EXPECT_EQ(0U, standIn.journal().count("zmq_disconnect"));
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ListenerSilence, IsIgnoredByAReplier) {
    Network::setSilenceLimit(1);
    RecordingListener replier(Protocol::Rep);
    {
        const PollsRunOut runOut;
        replier.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll", 200));
    }
    EXPECT_EQ(0U, standIn.journal().count("zmq_disconnect"));
    EXPECT_THAT(warnings(), IsEmpty());
}

} // namespace rk::tests
