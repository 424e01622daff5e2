#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/ThreadFaults.h"

#include <rk/socket/utils/Replier.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

using socket::utils::SocketListener;

static_assert(std::is_convertible_v<socket::utils::Replier<Text, Text>*, SocketListener*>);
static_assert(std::is_final_v<socket::utils::Replier<Text, Text>>);

const std::string abandoned = "warning: [Socket service] Attempting reset";

void repeat(const Text& request, Text& reply) {
    reply.set_text(request.text() + "!");
}

class Replier : public testing::Test {
protected:
    template <class Listener>
    void serve(Listener& listener) {
        ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Rep), error)) << error;
        ASSERT_TRUE(listener.start(error)) << error;
    }

    const ContextOfTheProcess context;
    StandIn standIn;
    std::optional<PollsRunOut> pollsRunOut;
    const BeforeJoin endOfPolls{[this] { pollsRunOut.emplace(); }};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    std::string error;
};

} // namespace

TEST_F(Replier, RepliesToEachRequest) {
    socket::utils::Replier<Text, Text> replier("service", repeat);
    serve(replier);

    EXPECT_EQ("one!", ask(endpoint, "one"));
    EXPECT_EQ("two!", ask(endpoint, "two"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(Replier, ReceivesUpToTheSetSize) {
    socket::utils::Replier<Text, Text> replier("service", repeat);
    replier.setMessageBufferSize(2147483647);
    replier.setMessageBufferSize(1000000);
    for (const std::uint32_t size : {0U, 2147483648U}) {
        EXPECT_EQ("[Socket Listener rep] Wrong message buffer size",
                  textThrownBy<std::invalid_argument>([&] { replier.setMessageBufferSize(size); }));
    }
    serve(replier);

    EXPECT_EQ(900001U, ask(endpoint, std::string(900000, 'x')).size());
}

TEST_F(Replier, RefusesAnEmptyHandler) {
    EXPECT_EQ("[Socket Listener rep] Cannot listen without a handler",
              textThrownBy<std::invalid_argument>([] { socket::utils::Replier<Text, Text>("service", nullptr); }));
}

TEST_F(Replier, FailsToStartWithTheReason) {
    NativeSocket holder(Protocol::Rep, endpoint);
    socket::utils::Replier<Text, Text> replier("service", repeat);
    ASSERT_TRUE(replier.addListenEndpoint(endpoint.toString(Protocol::Req), error));

    EXPECT_FALSE(replier.start(error));

    EXPECT_EQ("[Socket Listener rep] Failed connecting endpoint " + endpoint.toString(Protocol::Req) +
                  ": Socket: Failed connecting/binding socket: Address already in use on [Socket service]",
              error);
    EXPECT_FALSE(replier.isServing());
    EXPECT_EQ(0U, standIn.journal().count("error: "));
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
}

TEST_F(Replier, RejectsASecondStart) {
    socket::utils::Replier<Text, Text> replier("service", repeat);
    serve(replier);

    EXPECT_FALSE(replier.start(error));

    EXPECT_EQ("[Socket Listener rep] Failed starting thread: another thread is already running", error);
}

TEST_F(Replier, RepliesWhenTheHandlerThrows) {
    socket::utils::Replier<Text, Text> replier(
        "service",
        [](const Text&, Text& reply) {
            reply.set_text("half a reply");
            throw std::runtime_error("no such thing");
        },
        [](const Text& request, const std::exception& failure, Text& reply) {
            reply.set_text(request.text() + ": " + failure.what() + reply.text());
        });
    serve(replier);

    EXPECT_EQ("one: no such thing", ask(endpoint, "one"));
    EXPECT_EQ("two: no such thing", ask(endpoint, "two"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
    EXPECT_EQ(0U, standIn.journal().count(abandoned));
}

TEST_F(Replier, RepliesWhenTheReplyIsIncomplete) {
    socket::utils::Replier<Text, Command> replier(
        "service", [](const Text&, Command&) {},
        [](const Text&, const std::exception&, Command& reply) {
            reply.set_id(7);
            reply.mutable_header()->set_time(1);
        });
    serve(replier);
    Peer client("client", Protocol::Req, endpoint);
    client.sendProtoBuf(Text());
    Command reply;
    client.receiveProtoBuf(reply, 1000);

    EXPECT_EQ(7, reply.id());
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(Replier, KeepsTheQueueWhenTheHandlerThrows) {
    std::promise<void> queued;
    socket::utils::Replier<Text, Text> replier(
        "service",
        [&](const Text& request, Text& reply) {
            if (request.text() == "fail") {
                queued.get_future().wait();
                throw std::runtime_error("as asked");
            }
            repeat(request, reply);
        },
        [](const Text&, const std::exception& failure, Text& reply) { reply.set_text(failure.what()); });
    serve(replier);
    Text fail;
    fail.set_text("fail");
    Peer first("first", Protocol::Req, endpoint);
    first.sendProtoBuf(fail);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_recv"));
    Text text;
    text.set_text("one");
    Peer second("second", Protocol::Req, endpoint);
    second.sendProtoBuf(text);

    queued.set_value();

    first.receiveProtoBuf(text, 1000);
    EXPECT_EQ("as asked", text.text());
    second.receiveProtoBuf(text, 1000);
    EXPECT_EQ("one!", text.text());
    EXPECT_EQ(0U, standIn.journal().count(abandoned));
}

TEST_F(Replier, AbandonsRequestWithoutErrorHandler) {
    std::atomic<int> calls{0};
    socket::utils::Replier<Text, Text> replier("service", [&](const Text& request, Text& reply) {
        if (calls++ == 0) {
            throw std::runtime_error("no such thing");
        }
        repeat(request, reply);
    });
    serve(replier);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2)) << "is rebuilt";

    EXPECT_EQ("one!", ask(endpoint, "one"));
    EXPECT_EQ(1U,
              standIn.journal().count("error: [Socket Listener rep] Failed handling received message: no such thing"));
}

TEST_F(Replier, AbandonsRequestWhenErrorHandlerThrows) {
    socket::utils::Replier<Text, Text> replier(
        "service", [](const Text&, Text&) { throw std::runtime_error("first"); },
        [](const Text&, const std::exception&, Text&) { throw std::runtime_error("second"); });
    serve(replier);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    EXPECT_TRUE(standIn.journal().waitFor(abandoned));
    EXPECT_EQ(1U, standIn.journal().count("error: [Socket Listener rep] Failed handling received message: second"));
}

TEST_F(Replier, SkipsTheErrorHandlerDuringExit) {
    std::atomic<int> calls{0};
    socket::utils::Replier<Text, Text> replier("service", repeat,
                                               [&](const Text&, const std::exception&, Text&) { ++calls; });
    serve(replier);
    standIn.fail("zmq_send", ETERM);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    EXPECT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2)) << "is rebuilt";
    EXPECT_EQ(0, calls);
}

TEST_F(Replier, StopsInItsOwnDestructor) {
    std::promise<void> entered;
    std::promise<void> left;
    auto captured = std::make_shared<int>();
    bool outlived = false;
    NativeSocket client(Protocol::Req);
    {
        const BeforeJoin release([&] { left.set_value(); });
        const std::weak_ptr<int> watched = captured;
        socket::utils::Replier<Text, Text> slow("service", [&, kept = std::move(captured)](const Text&, Text&) {
            entered.set_value();
            left.get_future().wait();
            outlived = !watched.expired();
        });
        serve(slow);
        client.connect(endpoint);
        client.send("");
        entered.get_future().wait();
    }
    EXPECT_TRUE(outlived);
}

} // namespace rk::tests
