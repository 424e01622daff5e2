#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <zmq.h>

#include <cerrno>
#include <future>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace rk::tests {

namespace {

static_assert(std::is_convertible_v<Socket*, rk::utils::MessageFormatter*>);
static_assert(std::is_constructible_v<Socket, const std::string&, ClosePolicy::ClosePolicy>);
static_assert(!std::is_default_constructible_v<Socket>);
static_assert(!std::is_copy_constructible_v<Socket>);
static_assert(!std::is_copy_assignable_v<Socket>);
static_assert(!std::is_move_constructible_v<Socket>);
static_assert(!std::is_move_assignable_v<Socket>);
static_assert(!std::has_virtual_destructor_v<Socket>);
static_assert(std::is_nothrow_destructible_v<Socket>);

class SocketCreate : public testing::TestWithParam<int> {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};
};

INSTANTIATE_TEST_SUITE_P(OfType, SocketCreate,
                         testing::Values(0, 5, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()));

} // namespace

TEST_F(SocketCreate, IsNotCalledByTheConstructor) {
    std::string error = "untouched";
    socket.resetConnections();
    socket.flushIncomingMessages();
    EXPECT_EQ("Socket: Cannot connect a NULL socket", textThrownBy([&] { socket.connect(unserved, 0); }));
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));

    EXPECT_EQ("untouched", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
    expectClosed(standIn, socket);
}

TEST_F(SocketCreate, OpensTheSocket) {
    EXPECT_FALSE(socket.isOpen());
    socket.create(Protocol::Pub);
    EXPECT_TRUE(socket.isOpen());
    socket.close();
    EXPECT_FALSE(socket.isOpen());
    standIn.fail("zmq_socket", EMFILE);
    EXPECT_THROW(socket.create(Protocol::Pub), std::runtime_error);
    EXPECT_FALSE(socket.isOpen());
}

TEST_F(SocketCreate, ReplacesTheSocketOfEachPattern) {
    std::string error;
    for (const auto pattern : everyPattern) {
        socket.create(pattern);
        EXPECT_EQ(PollResult::Timeout, socket.poll(0, error));
        standIn.fail("zmq_close", ENOTSOCK); // which is ignored
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 1", "zmq_poll 1 items, events 1, 0 ms", "zmq_close",
                                                       "zmq_socket 2", "zmq_poll 1 items, events 1, 0 ms", "zmq_close",
                                                       "zmq_socket 4", "zmq_poll 1 items, events 1, 0 ms", "zmq_close",
                                                       "zmq_socket 3", "zmq_poll 1 items, events 1, 0 ms"));
}

TEST_F(SocketCreate, ForgetsTheEndpoints) {
    socket.createAndConnect(Protocol::Req, unserved, 100);
    socket.create(Protocol::Req);
    standIn.journal().clear();
    socket.resetConnections();
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket 3"));

    socket.connect(unserved, 0);
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect ipc:///nonexistent/nobody"));
}

TEST_P(SocketCreate, ThrowsForAnInvalidPattern) {
    const std::string text = "Socket: Failed creating socket [Socket cmd] of type " + std::to_string(GetParam()) +
                             ": Invalid argument on [Socket cmd]";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(text, textThrownBy([&] { socket.create(static_cast<Protocol::Protocol>(GetParam())); }));
        EXPECT_EQ("zmq_socket -1", standIn.journal().lines().back());
        EXPECT_EQ(static_cast<std::size_t>(round), standIn.journal().count("zmq_close"));
        expectClosed(standIn, socket);
        socket.createAndConnect(Protocol::Req, unserved, 0);
        standIn.journal().clear();
    }
}

TEST_F(SocketCreate, ThrowsZmqsError) {
    const std::pair<int, const char*> errors[] = {{EMFILE, "Too many open files"}, {ETERM, "Context was terminated"}};
    for (const auto& [error, reason] : errors) {
        socket.create(Protocol::Pub);
        standIn.journal().clear();
        standIn.fail("zmq_close", ENOTSOCK);
        standIn.fail("zmq_socket", error);
        EXPECT_EQ(std::string("Socket: Failed creating socket [Socket cmd] of type 4: ") + reason + " on [Socket cmd]",
                  textThrownBy<std::runtime_error>([&] { socket.create(Protocol::Req); }));
        EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket 3"));
        expectClosed(standIn, socket);
    }
}

TEST_F(SocketCreate, MayRunInManyThreadsAtOnce) {
    std::vector<std::future<void>> threads;
    for (int number = 0; number < 8; ++number) {
        threads.push_back(std::async(std::launch::async, [] {
            Socket mine("thread", ClosePolicy::DropPending);
            for (int round = 0; round < 20; ++round) {
                mine.createAndConnect(Protocol::Sub, unserved, 0);
            }
        }));
    }
    for (auto& thread : threads) {
        EXPECT_NO_THROW(thread.get());
    }
    EXPECT_EQ(160U, standIn.journal().count("zmq_socket 2"));
    EXPECT_EQ(160U, standIn.journal().count("zmq_close"));
}

TEST_F(SocketCreate, KeepsStatisticsAndBitRate) {
    standIn.setClock(1000.0);
    socket.activateStatistics(true);
    socket.setTargetBitRate(1);
    for (int block = 1; block <= 50; ++block) {
        socket.createAndConnect(Protocol::Pub, freshEndpoint(Transport::Inproc), 0);
        standIn.journal().clear();
        sendText(socket, std::string(131072, 'x'));
        EXPECT_EQ(block == 50 ? 1U : 0U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
        EXPECT_EQ(block == 1 ? 0U : 1U, standIn.journal().count("usleep 1000000"));
        socket.close();
    }
}

TEST_F(SocketCreate, KeepsTheName) {
    std::string name = "a [b] %s";
    Socket named(name, ClosePolicy::DropPending);
    name = "other";
    named.createAndConnect(Protocol::Req, unserved, 0);
    named.close();

    EXPECT_EQ("[Socket a [b] %s]", named.debugString());
    EXPECT_EQ("[Socket a [b] %s]", named.messageHeader());
    EXPECT_EQ("[Socket ]", Socket("", ClosePolicy::DropPending).debugString());
}

TEST_F(SocketCreate, IsUndoneByCloseOnce) {
    socket.createAndConnect(Protocol::Req, unserved, 100);
    standIn.journal().clear();
    standIn.fail("zmq_close", ENOTSOCK);
    socket.close();
    socket.close();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    expectClosed(standIn, socket);
}

TEST_F(SocketCreate, IsUndoneByTheDestructorOnce) {
    auto other = std::make_unique<Socket>("other", ClosePolicy::DropPending);
    other.reset();
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
    for (const int error : {0, ENOTSOCK}) {
        other = std::make_unique<Socket>("other", ClosePolicy::DropPending);
        other->create(Protocol::Pub);
        if (error != 0) {
            standIn.fail("zmq_close", error);
        }
        standIn.journal().clear();
        other.reset();
        EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    }
}

} // namespace rk::tests
