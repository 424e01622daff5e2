#include "support/Calls.h"
#include "support/Test.h"
#include "support/ThreadFaults.h"
#include "support/ZmqHandle.h"

#include <rk/socket/SocketContext.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace rk::tests {

namespace {

/// A socket that fails to take a lock. The faults count the locks in the order in which a call takes them.
class SocketMutex : public testing::Test {
protected:
    template <class Action>
    static std::string textThrownAtLock(int nth, const Action& action) {
        const MutexFault fault(EAGAIN, nth);
        return textThrownBy<std::system_error>(action);
    }

    const std::string refused = "Resource temporarily unavailable";
    const ContextOfTheProcess context;
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Socket server{"server", ClosePolicy::DropPending};
};

void destroyWithoutItsLock() {
    auto server = std::make_unique<Socket>("server", ClosePolicy::DropPending);
    server->createAndConnect(Protocol::Rep, freshEndpoint(Transport::Inproc), 0);
    const MutexFault fault(EAGAIN, 2); // the first lock is the address book's, and a close ignores its failure
    server.reset();
}

/// The parameter is the number of the lock that fails.
class SocketMutexCreate : public SocketMutex, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(AtLock, SocketMutexCreate, testing::Range(1, 5));

class SocketMutexConnect : public SocketMutex, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(AtLock, SocketMutexConnect, testing::Range(1, 6));

} // namespace

TEST_P(SocketMutexCreate, ThrowsAndStaysClosed) {
    EXPECT_EQ(refused, textThrownAtLock(GetParam(), [&] { server.create(Protocol::Rep); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    expectClosed(standIn, server);
}

TEST_P(SocketMutexConnect, ThrowsAndCloses) {
    server.create(Protocol::Rep);

    EXPECT_EQ(refused, textThrownAtLock(GetParam(), [&] { server.connect(endpoint, 100); }));

    // The order of the locks: settings, credentials and gate before the bind, address book after it, and record after
    // the options.
    EXPECT_EQ(GetParam() == 5 ? 1U : 0U, standIn.journal().count(calls::set(ZMQ_RCVTIMEO, 100)));
    EXPECT_EQ(0U, standIn.journal().count("debug: Connected"));
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
    expectClosed(standIn, server);
}

TEST_F(SocketMutex, ClosesAndThrows) {
    server.createAndConnect(Protocol::Rep, endpoint, 0);
    standIn.journal().clear();

    EXPECT_EQ(refused, textThrownAtLock(2, [&] { server.close(); }));

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    std::string error;
    EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { server.poll(0, error); }));
    server.close();
    expectClosed(standIn, server);
}

TEST_F(SocketMutex, ClosesWhenTheBooksLockFails) {
    server.createAndConnect(Protocol::Rep, endpoint, 0);
    standIn.journal().clear();
    {
        const MutexFault fault(EAGAIN);
        server.close();
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_close"));
    standIn.fail("zmq_bind", EADDRINUSE);

    EXPECT_EQ("Socket: Failed connecting/binding socket: Address already in use on [Socket server]",
              textThrownBy([&] { server.createAndConnect(Protocol::Rep, endpoint, 0); }));
}

TEST(SocketMutexDeathTest, EndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_EXIT(destroyWithoutItsLock(), testing::KilledBySignal(SIGABRT),
                "terminate called after throwing an instance of 'std::system_error'\n"
                "  what\\(\\):  Resource temporarily unavailable");
}

TEST_F(SocketMutex, LogsAFailedRebuild) {
    server.createAndConnect(Protocol::Rep, endpoint, 0);
    standIn.journal().clear();
    {
        const MutexFault fault(EAGAIN, 2);
        server.resetConnections();
    }
    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_close", "error: [Socket server]: Error resetting socket: " + refused));
    standIn.journal().clear();
    server.setInternalFifoSize(1);
    EXPECT_THAT(standIn.journal().lines(), IsEmpty()) << "the socket has no pattern any more";
    server.close();
    expectClosed(standIn, server);
}

TEST_F(SocketMutex, BindsWhenTheBooksLockFails) {
    server.createAndConnect(Protocol::Rep, endpoint, 0);
    server.create(Protocol::Rep);
    standIn.fail("zmq_bind", EADDRINUSE, 1, StandIn::always);

    EXPECT_EQ(refused, textThrownAtLock(6, [&] { server.connect(endpoint, 0); }));

    EXPECT_EQ(3U, standIn.journal().count("zmq_bind"));
}

TEST_F(SocketMutex, RefusesAContext) {
    SocketContext own;
    standIn.journal().clear();

    EXPECT_EQ(refused, textThrownAtLock(1, [&] { own.createSocket(Protocol::Pub); }));
    EXPECT_EQ(refused, textThrownAtLock(1, [] { getSocket(Protocol::Pub); }));
    EXPECT_EQ(refused, textThrownAtLock(2, [] { getSocket(Protocol::Pub); }));

    EXPECT_THAT(standIn.journal().lines(), IsEmpty());
    EXPECT_NE(nullptr, ZmqHandle(getSocket(Protocol::Pub)));
}

} // namespace rk::tests
