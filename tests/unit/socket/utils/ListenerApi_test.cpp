#include "support/NativeSocket.h"
#include "support/RecordingListener.h"

#include <cerrno>
#include <thread>
#include <type_traits>

namespace rk::tests {

namespace {

using socket::utils::SocketListener;

static_assert(std::is_abstract_v<SocketListener>);
static_assert(std::has_virtual_destructor_v<SocketListener>);
static_assert(std::is_base_of_v<rk::utils::MessageFormatter, SocketListener>);
static_assert(!std::is_copy_constructible_v<SocketListener>);
static_assert(!std::is_copy_assignable_v<SocketListener>);

const std::string refusal = "[Socket Listener rep] Failed starting thread: another thread is already running";

class ListenerApi : public ListenerTest {
protected:
    ListenerApi() { error = "as it was"; }
};

} // namespace

TEST_F(ListenerApi, RefusesOtherPatterns) {
    for (const auto protocol : {Protocol::Pub, Protocol::Req, Protocol::Undef, static_cast<Protocol::Protocol>(7)}) {
        RecordingListener other(protocol);
        EXPECT_FALSE(other.start(error));
        EXPECT_EQ("[Socket Listener " + Protocol::ToString(protocol) + "] Only Sub and Rep protocols are supported",
                  error);
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST_F(ListenerApi, BuildsHeadersFromPatternAndName) {
    EXPECT_EQ("[Socket Listener rep] text", listener.makeErrorString("text"));
    EXPECT_EQ("[Socket Listener sub] ", RecordingListener(Protocol::Sub).makeErrorString(""));
    EXPECT_EQ("[Socket Listener on service]", listener.messageHeader());
    EXPECT_EQ("[Socket Listener on service]: text", listener.formatMessage("text"));
}

TEST_F(ListenerApi, StopsWithoutAStart) {
    EXPECT_TRUE(listener.stop(error));
    EXPECT_EQ("", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST_F(ListenerApi, RejectsASecondStart) {
    listener.serve(endpoint);

    EXPECT_FALSE(listener.start(error));

    EXPECT_EQ(refusal, error);
    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerApi, StartsWithoutEndpoints) {
    EXPECT_TRUE(listener.start(error));
    EXPECT_EQ("", error);
    EXPECT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms"));
}

TEST_F(ListenerApi, StartsWithTheCallsInOrder) {
    ASSERT_TRUE(listener.addListenEndpoint("inproc://order-a", error));
    ASSERT_TRUE(listener.addListenEndpoint("inproc://order-b", error));
    ASSERT_TRUE(listener.addListenEndpoint("inproc://order-a", error));
    EXPECT_EQ("as it was", error);

    ASSERT_TRUE(listener.start(error));
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    EXPECT_EQ("", error);
    ASSERT_TRUE(listener.stop(error));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_socket 4", "debug: Connecting [Socket service], listening on inproc://order-a",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "zmq_bind inproc://order-a",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "debug: Connected [Socket service]",
                            "debug: Connecting [Socket service], listening on inproc://order-b",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "zmq_bind inproc://order-b",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "debug: Connected [Socket service]",
                            "zmq_poll 1 items, events 1, 1000 ms", "zmq_close"));
}

TEST_F(ListenerApi, KeepsARemovedEndpoint) {
    ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Rep), error));
    error = "of an earlier call";
    ASSERT_TRUE(listener.removeListenEndpoint(endpoint.toString(Protocol::Rep), error));
    EXPECT_EQ("", error);

    ASSERT_TRUE(listener.start(error));

    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerApi, RefusesAnInvalidEndpoint) {
    listener.serve(endpoint);

    EXPECT_FALSE(listener.addListenEndpoint("udp://x:1", error));

    EXPECT_EQ("[Socket Listener rep] Invalid endpoint: Failed deserializing udp://x:1: cannot extract transport",
              error);
    EXPECT_EQ("question", ask(endpoint, "question"));
    ASSERT_TRUE(listener.stop(error));
    EXPECT_EQ(1U, standIn.journal().count("debug: Connecting [Socket service]"));
    ASSERT_TRUE(listener.start(error));
    EXPECT_EQ(2U, standIn.journal().count("debug: Connecting [Socket service]"));
}

TEST_F(ListenerApi, ReportsAFailedSocket) {
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_FALSE(listener.start(error));

    EXPECT_EQ(
        "[Socket Listener rep] Failed creating socket: Socket: Failed creating socket [Socket service] of type 3: "
        "Too many open files on [Socket service]",
        error);
    EXPECT_THAT(standIn.journal().linesWith("error: "), ElementsAre());
    EXPECT_TRUE(listener.start(error)) << error;
}

TEST_F(ListenerApi, ReportsAFailedRestart) {
    listener.serve(endpoint);
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_FALSE(listener.addListenEndpoint("inproc://one-more", error));

    EXPECT_EQ(
        "[Socket Listener rep] Failed creating socket: Socket: Failed creating socket [Socket service] of type 3: "
        "Too many open files on [Socket service]",
        error);
    ASSERT_TRUE(listener.start(error)) << error;
    EXPECT_EQ("old", ask(endpoint, "old"));
    EXPECT_EQ("new", ask({Transport::Inproc, "one-more", 0}, "new"));
}

TEST_F(ListenerApi, EndsWhenAnEndpointIsInUse) {
    const SocketEndpoint taken = freshEndpoint(Transport::Tcp);
    NativeSocket holder(Protocol::Rep, taken);
    for (const std::string& address :
         {std::string("inproc://before"), taken.toString(Protocol::Req), std::string("inproc://after")}) {
        ASSERT_TRUE(listener.addListenEndpoint(address, error));
    }

    EXPECT_TRUE(listener.start(error));

    EXPECT_EQ("", error);
    EXPECT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep]"));
    EXPECT_THAT(
        standIn.journal().linesWith("error: "),
        ElementsAre("error: [Socket Listener on service]: Failed connecting endpoint " +
                        taken.toString(Protocol::Undef) +
                        ": Socket: Failed connecting/binding socket: Address already in use on [Socket service]",
                    "error: [Socket Listener on service]: Failed connecting endpoint inproc://after: Socket: "
                    "Cannot connect a NULL socket",
                    "error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL socket. "
                    "Aborting listener thread."));
    EXPECT_FALSE(listener.start(error));
    EXPECT_EQ(refusal, error);
    EXPECT_TRUE(listener.stop(error));
}

TEST_F(ListenerApi, ReportsWhetherAllAreServed) {
    EXPECT_FALSE(listener.isServing());
    listener.serve(freshEndpoint(Transport::Inproc));
    EXPECT_TRUE(listener.isServing());
    ASSERT_TRUE(listener.stop(error));
    EXPECT_FALSE(listener.isServing());

    standIn.fail("zmq_bind", EINVAL);
    ASSERT_TRUE(listener.start(error));
    EXPECT_FALSE(listener.isServing());
    ASSERT_TRUE(listener.stop(error));

    standIn.fail("zmq_poll", EFAULT);
    ASSERT_TRUE(listener.start(error));
    EXPECT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep] Poll error"));
    while (listener.isServing()) {
        std::this_thread::yield();
    }
}

TEST_F(ListenerApi, ReportsTheLastEndpointWhileItRuns) {
    EXPECT_EQ(SocketEndpoint(), listener.lastEndpoint());
    listener.serve({Transport::Tcp, "127.0.0.1", 0});
    EXPECT_EQ("question", ask(listener.lastEndpoint(), "question"));
    ASSERT_TRUE(listener.stop(error));
    EXPECT_EQ(SocketEndpoint(), listener.lastEndpoint());
}

TEST_F(ListenerApi, ReportsTheLastEndpointToHandlers) {
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        text.set_text(listener.lastEndpoint().toString(Protocol::Req));
        echo(text, socket);
    });
    listener.serve(endpoint);
    EXPECT_EQ(endpoint.toString(Protocol::Req), ask(endpoint, ""));
}

} // namespace rk::tests
