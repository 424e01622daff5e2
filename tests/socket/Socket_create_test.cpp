#include "support/Closed.h"
#include "support/Errors.h"
#include "support/StandIn.h"
#include "support/ZmqHandle.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cerrno>
#include <future>
#include <ostream>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

static_assert(std::is_convertible_v<Socket*, utils::MessageFormatter*>);
static_assert(std::is_constructible_v<Socket, const std::string&, ClosePolicy::ClosePolicy>);
static_assert(!std::is_default_constructible_v<Socket>);
static_assert(!std::is_copy_constructible_v<Socket>);
static_assert(!std::is_copy_assignable_v<Socket>);
static_assert(!std::is_move_constructible_v<Socket>);
static_assert(!std::is_move_assignable_v<Socket>);
static_assert(!std::has_virtual_destructor_v<Socket>);
static_assert(std::is_nothrow_destructible_v<Socket>);
static_assert(std::is_same_v<decltype(&Socket::create), void (Socket::*)(Protocol::Protocol)>);
static_assert(std::is_same_v<decltype(&Socket::close), void (Socket::*)()>);
static_assert(std::is_same_v<decltype(&Socket::debugString), std::string (Socket::*)() const>);

const SocketEndpoint nobody(Transport::Ipc, "/nonexistent/nobody", 0);

void sendBlocks(Socket& socket, int count) {
    char block = 0;
    for (int number = 0; number < count; ++number) {
        socket.send(&block, sizeof block);
    }
}

class CreateSocket : public testing::Test {
protected:
    const ContextOfTheProcess context;
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::LingerTwoSeconds};
};

/// A value that is no pattern, and the text of the failure to create a socket of it.
struct NoPattern {
    int value;
    std::string text;
};

void PrintTo(const NoPattern& pattern, std::ostream* out) {
    *out << pattern.value;
}

class CreateSocketOfNoPattern : public testing::TestWithParam<NoPattern> {
protected:
    const Protocol::Protocol protocol = static_cast<Protocol::Protocol>(GetParam().value);
    const ContextOfTheProcess context;
    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(
    OfType, CreateSocketOfNoPattern,
    testing::Values(
        NoPattern{0, "Socket: Failed creating socket [Socket cmd] of type 0: Invalid argument on [Socket cmd]"},
        NoPattern{5, "Socket: Failed creating socket [Socket cmd] of type 5: Invalid argument on [Socket cmd]"},
        NoPattern{-1, "Socket: Failed creating socket [Socket cmd] of type -1: Invalid argument on [Socket cmd]"},
        NoPattern{2147483647,
                  "Socket: Failed creating socket [Socket cmd] of type 2147483647: Invalid argument on [Socket cmd]"},
        NoPattern{-2147483647 - 1, "Socket: Failed creating socket [Socket cmd] of type -2147483648: Invalid argument "
                                   "on [Socket cmd]"}));

} // namespace

TEST_F(CreateSocket, IsNotDoneByTheConstructor) {
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
    expectClosed(standIn, socket);
}

TEST_F(CreateSocket, LeavesEveryOperationOfANewSocketWithoutAZmqHandle) {
    char byte = 0;
    std::string error = "untouched";

    EXPECT_EQ("Socket: Cannot connect a NULL socket", textThrownBy([&] { socket.connect(nobody, 0); }));
    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { socket.send(&byte, 1); }));
    EXPECT_EQ("Socket: Cannot receive on a NULL socket", textThrownBy([&] { socket.receive(&byte, 1); }));
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { socket.poll(0, error); }));
    socket.resetConnections();
    socket.flushIncomingMessages();
    socket.setInternalFifoSize(1);

    EXPECT_EQ("untouched", error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST_F(CreateSocket, AsksFor0MqsSocketOfEachPattern) {
    socket.create(Protocol::Pub);
    socket.create(Protocol::Sub);
    socket.create(Protocol::Rep);
    socket.create(Protocol::Req);

    EXPECT_THAT(standIn.journal().linesWith("zmq_socket"),
                ElementsAre("zmq_socket 1", "zmq_socket 2", "zmq_socket 4", "zmq_socket 3"));
}

TEST_F(CreateSocket, LogsNothingAndSetsNoOption) {
    socket.create(Protocol::Req);
    socket.close();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 3", "zmq_close"));
}

TEST_F(CreateSocket, GivesASocketThatCanBePolled) {
    std::string error;

    socket.create(Protocol::Sub);

    EXPECT_EQ(socket::PollResult::Timeout, socket.poll(0, error));
}

TEST_F(CreateSocket, TwiceClosesTheFirstBeforeItAsksForTheSecond) {
    socket.create(Protocol::Pub);
    socket.create(Protocol::Req);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 1", "zmq_close", "zmq_socket 3"));
}

TEST_F(CreateSocket, TwiceForgetsTheEndpointsInBetween) {
    socket.createAndConnect(Protocol::Req, nobody, 100);
    socket.create(Protocol::Req);
    standIn.journal().clear();

    socket.resetConnections();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket 3"));
}

TEST_F(CreateSocket, TwiceLetsTheSameEndpointBeConnectedAnew) {
    socket.createAndConnect(Protocol::Req, nobody, 0);
    socket.create(Protocol::Req);
    standIn.journal().clear();

    socket.connect(nobody, 0);

    EXPECT_THAT(standIn.journal().linesWith("zmq_"),
                ElementsAre("zmq_connect ipc:///nonexistent/nobody", "zmq_setsockopt 17 = 2000 (4 bytes)"));
}

TEST_F(CreateSocket, OpensAClosedSocketAgain) {
    socket.createAndConnect(Protocol::Req, nobody, 0);
    socket.close();
    expectClosed(standIn, socket);

    socket.create(Protocol::Sub);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 2"));
}

TEST_P(CreateSocketOfNoPattern, ThrowsAndLeavesTheSocketClosed) {
    EXPECT_EQ(GetParam().text, textThrownBy([&] { socket.create(protocol); }));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket -1"));
    expectClosed(standIn, socket);
}

TEST_P(CreateSocketOfNoPattern, ClosesWhatWasOpen) {
    socket.createAndConnect(Protocol::Req, nobody, 0);
    standIn.journal().clear();

    EXPECT_EQ(GetParam().text, textThrownBy([&] { socket.create(protocol); }));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket -1"));
    expectClosed(standIn, socket);
}

TEST_F(CreateSocket, ThatFailsIn0MqThrowsItsErrorAndLogsNothing) {
    socket.create(Protocol::Pub);
    standIn.journal().clear();
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 4: Too many open files on [Socket cmd]",
              textThrownBy([&] { socket.create(Protocol::Req); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close", "zmq_socket 3"));
    expectClosed(standIn, socket);
}

TEST_F(CreateSocket, OfATerminatedContextThrowsAPlainRuntimeError) {
    standIn.fail("zmq_socket", ETERM);

    EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 2: Context was terminated on [Socket cmd]",
              textThrownBy<std::runtime_error>([&] { socket.create(Protocol::Sub); }));
}

TEST_F(CreateSocket, ReportsItsOwnErrorAndNotThatOfTheClose) {
    socket.create(Protocol::Pub);
    standIn.fail("zmq_close", ENOTSOCK);
    standIn.fail("zmq_socket", EMFILE);

    EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 1: Too many open files on [Socket cmd]",
              textThrownBy([&] { socket.create(Protocol::Pub); }));
}

TEST_F(CreateSocket, WorksAfterAFailure) {
    standIn.fail("zmq_socket", EMFILE);
    EXPECT_THROW(socket.create(Protocol::Req), std::runtime_error);
    standIn.journal().clear();

    socket.create(Protocol::Req);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 3"));
}

TEST_F(CreateSocket, IgnoresAFailingClose) {
    socket.create(Protocol::Pub);
    standIn.fail("zmq_close", ENOTSOCK);

    socket.create(Protocol::Req);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 1", "zmq_close", "zmq_socket 3"));
}

TEST_F(CreateSocket, MayRunInManyThreadsAtOnce) {
    std::vector<std::future<void>> threads;
    for (int number = 0; number < 8; ++number) {
        threads.push_back(std::async(std::launch::async, [] {
            Socket mine("thread", ClosePolicy::DropPending);
            for (int round = 0; round < 20; ++round) {
                mine.createAndConnect(Protocol::Sub, nobody, 0);
            }
        }));
    }
    for (auto& thread : threads) {
        EXPECT_NO_THROW(thread.get());
    }
    EXPECT_EQ(160U, standIn.journal().count("zmq_socket 2"));
    EXPECT_EQ(160U, standIn.journal().count("zmq_close"));
}

TEST_F(CreateSocket, KeepsTheSwitchOfStatisticsAndTheirCounts) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    sendBlocks(socket, 30);
    socket.close();
    socket.create(Protocol::Pub);

    sendBlocks(socket, 19);
    EXPECT_EQ(0U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
    sendBlocks(socket, 1);
    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
}

TEST_F(CreateSocket, KeepsTheBitRateAndTheTimeOfTheLastSend) {
    standIn.setClock(1000.0);
    socket.setTargetBitRate(1);
    socket.create(Protocol::Pub);
    std::vector<char> megabit(131072);
    socket.send(megabit.data(), megabit.size());
    socket.close();
    socket.create(Protocol::Pub);
    standIn.journal().clear();

    socket.send(megabit.data(), megabit.size());

    EXPECT_THAT(standIn.journal().linesWith("usleep"), ElementsAre("usleep 1000000"));
}

TEST(DebugString, IsMadeOfTheName) {
    EXPECT_EQ("[Socket cmd]", Socket("cmd", ClosePolicy::DropPending).debugString());
    EXPECT_EQ("[Socket a [b] %s]", Socket("a [b] %s", ClosePolicy::DropPending).debugString());
}

TEST(DebugString, OfAnEmptyNameKeepsItsBlank) {
    const Socket socket("", ClosePolicy::DropPending);

    EXPECT_EQ("[Socket ]", socket.debugString());
    EXPECT_EQ("[Socket ]", socket.messageHeader());
}

TEST(DebugString, NeverChanges) {
    StandIn standIn;
    std::string name = "cmd";
    Socket socket(name, ClosePolicy::DropPending);
    name = "other";
    EXPECT_EQ("[Socket cmd]", socket.debugString());
    socket.createAndConnect(Protocol::Req, nobody, 0);
    EXPECT_EQ("[Socket cmd]", socket.debugString());
    socket.resetConnections();
    EXPECT_EQ("[Socket cmd]", socket.debugString());
    socket.close();
    EXPECT_EQ("[Socket cmd]", socket.debugString());
    EXPECT_THROW(socket.create(Protocol::Undef), std::runtime_error);
    EXPECT_EQ("[Socket cmd]", socket.debugString());
}

TEST_F(CreateSocket, IsUndoneByClose) {
    socket.createAndConnect(Protocol::Req, nobody, 100);
    standIn.journal().clear();

    socket.close();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    expectClosed(standIn, socket);
}

TEST(Close, OfAClosedSocketDoesNothingAnyNumberOfTimes) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);

    socket.close();
    socket.close();
    socket.close();

    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST(Close, ClosesTheZmqHandleOnce) {
    StandIn standIn;
    {
        Socket socket("cmd", ClosePolicy::DropPending);
        socket.create(Protocol::Pub);
        socket.close();
        socket.close();
    }
    EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
}

TEST(Close, ReallyClosesTheZmqHandle) {
    StandIn standIn;
    ZmqContext context;
    Socket socket("cmd", ClosePolicy::DropPending);
    standIn.answer("zmq_socket", context.handleOf(ZMQ_PUB));
    socket.create(Protocol::Pub);

    socket.close();

    // The end of the context waits for the socket.
}

TEST(Close, ThatFailsIn0MqIsIgnored) {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.createAndConnect(Protocol::Req, nobody, 100);
    standIn.fail("zmq_close", ENOTSOCK);

    EXPECT_NO_THROW(socket.close());

    expectClosed(standIn, socket);
}

TEST(DestroyedSocket, IsClosed) {
    const ContextOfTheProcess context;
    StandIn standIn;
    {
        Socket socket("cmd", ClosePolicy::DropPending);
        socket.create(Protocol::Pub);
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 1", "zmq_close"));
}

TEST(DestroyedSocket, ThatWasClosedMakesNoCall) {
    const ContextOfTheProcess context;
    StandIn standIn;
    { const Socket socket("cmd", ClosePolicy::DropPending); }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

TEST(DestroyedSocket, IgnoresAFailingClose) {
    const ContextOfTheProcess context;
    StandIn standIn;
    {
        Socket socket("cmd", ClosePolicy::DropPending);
        socket.create(Protocol::Pub);
        standIn.fail("zmq_close", ENOTSOCK);
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket 1", "zmq_close"));
}

} // namespace rk::tests
