#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/ThreadFaults.h"

#include <zmq.h>

#include <cerrno>
#include <future>
#include <optional>
#include <stdexcept>

namespace rk::tests {

namespace {

std::string handlingError(const std::string& reason) {
    return "error: [Socket Listener rep] Failed handling received message: " + reason;
}

/// The next poll of a listener checks whether a reply is owed.
constexpr int afterTheReply = 2;

class ListenerServing : public ListenerTest {
protected:
    void SetUp() override { listener.serve(endpoint); }

    /// Sends a request and receives the reply, both without entries in the journal.
    void makeARequest() {
        NativeSocket client(Protocol::Req, endpoint);
        client.send("");
        EXPECT_EQ("", client.receive());
    }

    /// Returns the socket of a thread that has ended because a poll failed. The handler has kept the socket.
    std::shared_ptr<Socket> socketKeptBeyond(int pollError, const std::string& line) {
        std::shared_ptr<Socket> kept;
        listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
            kept = socket;
            standIn.fail("zmq_poll", pollError);
            echo(text, socket);
        });
        makeARequest();
        EXPECT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep] " + line));
        EXPECT_TRUE(listener.stop(error)) << error;
        return kept;
    }

    /// Waits until the thread has logged `line`, closed the socket and ended.
    void expectEndWith(const std::string& line) {
        EXPECT_TRUE(standIn.journal().waitFor("zmq_close"));
        EXPECT_THAT(standIn.journal().linesWith("error: "), ElementsAre(line));
        const std::vector<std::string> lines = standIn.journal().lines();
        EXPECT_THAT(std::vector(lines.end() - 2, lines.end()), ElementsAre(line, "zmq_close"));
        EXPECT_FALSE(listener.start(error));
        EXPECT_EQ("[Socket Listener rep] Failed starting thread: another thread is already running", error);
        EXPECT_TRUE(listener.stop(error));
        EXPECT_TRUE(listener.start(error));
    }
};

} // namespace

TEST_F(ListenerServing, HandlesRequestsInOrder) {
    for (const std::string text : {"one", "two", "three"}) {
        EXPECT_EQ(text, ask(endpoint, text));
    }
    EXPECT_THAT(listener.texts(), ElementsAre("one", "two", "three"));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(ListenerServing, LogsAHandlersException) {
    listener.setHandler([](Text&, const std::shared_ptr<Socket>&) { throw std::runtime_error("no luck"); });
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor(handlingError("no luck")));
    listener.setHandler(echo);
    // Requests that arrive before the rebuild are lost.
    ASSERT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2));

    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(1U, standIn.journal().count("error: "));
}

TEST_F(ListenerServing, KeepsARequestWithoutAMessage) {
    listener.setMaker([] { return nullptr; });
    auto answer = std::async(std::launch::async, [this] { return ask(endpoint, "question"); });
    ASSERT_TRUE(standIn.journal().waitFor(handlingError("Socket: Cannot receive on a NULL message"), 2));

    listener.setMaker([] { return std::make_shared<Text>(); });

    EXPECT_EQ("question", answer.get());
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
}

TEST_F(ListenerServing, EndsWhenMakingAMessageThrows) {
    listener.setMaker([]() -> std::shared_ptr<google::protobuf::Message> { throw std::runtime_error("none left"); });
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    expectEndWith("error: [Socket Listener rep] Failed reading socket: none left. Aborting listener thread.");
}

TEST_F(ListenerServing, EndsWhenLocksFail) {
    std::optional<MutexFault> fault;
    listener.setMaker([&fault]() -> std::shared_ptr<google::protobuf::Message> {
        // The second lock is the socket's, and the first is the address book's.
        fault.emplace(EAGAIN, 2);
        throw std::runtime_error("none left");
    });
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    expectEndWith("error: [Socket Listener rep] Failed reading socket: none left. Aborting listener thread.");
}

TEST_F(ListenerServing, EndsWhenAPollFails) {
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    standIn.fail("zmq_poll", EINTR, afterTheReply);

    makeARequest();

    expectEndWith("error: [Socket Listener rep] Poll error on socket. Aborting listener thread.");
}

TEST_F(ListenerServing, EndsWithTheContext) {
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    standIn.fail("zmq_poll", ETERM, afterTheReply);

    makeARequest();

    expectEndWith("error: [Socket Listener rep] Failed reading socket: Context terminated in poll() for socket [Socket "
                  "service]. Aborting listener thread.");
}

TEST_F(ListenerServing, ClosesAKeptSocketOnPollError) {
    const std::shared_ptr<Socket> kept = socketKeptBeyond(EFAULT, "Poll error on socket. Aborting listener thread.");

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { kept->poll(0, error); }));
}

TEST_F(ListenerServing, ClosesAKeptSocketOnETerm) {
    const std::shared_ptr<Socket> kept =
        socketKeptBeyond(ETERM, "Failed reading socket: Context terminated in poll() for "
                                "socket [Socket service]. Aborting listener thread.");

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { kept->poll(0, error); }));
}

} // namespace rk::tests
