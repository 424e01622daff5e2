#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/MutexFault.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

std::string handlingError(const std::string& reason) {
    return "error: [Socket Listener rep] Failed handling received message: " + reason;
}

/// The next poll of a listener is the one that asks whether a reply is owed.
constexpr int afterTheReply = 2;

class ListenerServing : public testing::Test {
protected:
    void SetUp() override { listener.serve(endpoint); }

    /// A request of a client that stands in no journal, and the reply to it.
    void makeARequest() {
        NativeSocket client(Protocol::Req);
        client.connect(endpoint);
        client.send("");
        EXPECT_EQ("", client.receive());
    }

    /// The socket, which a handler kept, of a thread that has ended by itself because a poll failed.
    std::shared_ptr<Socket> socketKeptBeyond(int pollError) {
        std::shared_ptr<Socket> kept;
        listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
            kept = socket;
            standIn.fail("zmq_poll", pollError);
            echo(text, socket);
        });
        makeARequest();
        EXPECT_TRUE(standIn.journal().waitFor("error: "));
        EXPECT_TRUE(listener.stop(error)) << error;
        return kept;
    }

    /// Waits until the thread has ended by itself, which says why and closes the socket then.
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

    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    std::string error;
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

TEST_F(ListenerServing, HandlesTheMessageThatWasMade) {
    const auto made = std::make_shared<Text>();
    const Text* handled = nullptr;
    listener.setMaker([&] { return made; });
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        handled = &text;
        echo(text, socket);
    });

    EXPECT_EQ("question", ask(endpoint, "question"));

    ASSERT_TRUE(listener.stop(error));
    EXPECT_EQ(made.get(), handled);
}

TEST_F(ListenerServing, ReceivesIntoABufferOf128KiB) {
    const Text largest = [] {
        Text text;
        text.set_text(std::string(131072 - 4, 'x'));
        return text;
    }();
    ASSERT_EQ(131072U, largest.ByteSizeLong());

    EXPECT_EQ(largest.text(), [&] {
        Socket client("client", socket::ClosePolicy::DropPending);
        client.createAndConnect(Protocol::Req, endpoint, 20000);
        Text text = largest;
        client.sendProtoBuf(&text);
        client.receiveProtoBuf(&text, 200000);
        return text.text();
    }());

    EXPECT_TRUE(standIn.journal().count("zmq_recv 131072 bytes, flags 0") > 0);
}

TEST_F(ListenerServing, LogsAHandlersException) {
    listener.setHandler([](Text&, const std::shared_ptr<Socket>&) { throw std::runtime_error("no luck"); });
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);
    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor(handlingError("no luck")));
    listener.setHandler(echo);
    // What comes in before the socket is rebuilt is lost.
    ASSERT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2));

    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(1U, standIn.journal().count("error: "));
}

TEST_F(ListenerServing, KeepsARequestWhenNoneIsMade) {
    listener.setMaker([] { return nullptr; });
    auto answer = std::async(std::launch::async, [this] { return ask(endpoint, "question"); });
    ASSERT_TRUE(standIn.journal().waitFor(handlingError("Socket: Cannot receive on a NULL message"), 2));

    listener.setMaker([] { return std::make_shared<Text>(); });

    EXPECT_EQ("question", answer.get());
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
}

TEST_F(ListenerServing, EndsWhenMakingAMessageThrows) {
    listener.setMaker([]() -> std::shared_ptr<google::protobuf::Message> { throw std::runtime_error("none left"); });
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);

    client.send("");

    expectEndWith("error: [Socket Listener rep] Failed reading socket: none left. Aborting listener thread.");
}

TEST_F(ListenerServing, EndsWhenLocksFail) {
    std::optional<MutexFault> fault;
    listener.setMaker([&fault]() -> std::shared_ptr<google::protobuf::Message> {
        // The socket's lock; before it comes that of the addresses.
        fault.emplace(EAGAIN, 2);
        throw std::runtime_error("none left");
    });
    NativeSocket client(Protocol::Req);
    client.connect(endpoint);

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
    const std::shared_ptr<Socket> kept = socketKeptBeyond(EFAULT);

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { kept->poll(0, error); }));
}

TEST_F(ListenerServing, ClosesAKeptSocketOnETerm) {
    const std::shared_ptr<Socket> kept = socketKeptBeyond(ETERM);

    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { kept->poll(0, error); }));
}

TEST_F(ListenerServing, IgnoresANullSocket) {
    EXPECT_NO_THROW(listener.threadFunction(nullptr));
}

} // namespace rk::tests
