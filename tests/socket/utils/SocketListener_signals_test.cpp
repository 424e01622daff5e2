#include "support/Endpoints.h"
#include "support/RecordingListener.h"
#include "support/Signals.h"
#include "support/StandIn.h"
#include "support/ThreadFault.h"
#include "support/ZmqHandle.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::Contains;
using testing::Not;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

sigset_t setOf(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

std::vector<int> everySignalThatCanBeBlocked() {
    sigset_t all;
    sigfillset(&all);
    const BlockedSignals block(all);
    return blockedSignals();
}

class ListenerSignals : public testing::Test {
protected:
    /// Listens, and comes back when the thread waits.
    void serve() {
        listener.serve(endpoint);
        ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    }

    const ContextOfTheProcess context;
    StandIn standIn;
    RecordingListener listener{Protocol::Rep};
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const SignalTaker taker{SIGUSR1};
    std::string error;
};

} // namespace

TEST_F(ListenerSignals, AreAllBlockedInTheThread) {
    std::vector<int> whenMaking;
    std::vector<int> whenHandling;
    listener.setMaker([&] {
        whenMaking = blockedSignals();
        return std::make_shared<Text>();
    });
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        whenHandling = blockedSignals();
        echo(text, socket);
    });
    listener.serve(endpoint);
    ask(endpoint, "question");
    ASSERT_TRUE(listener.stop(error));

    EXPECT_EQ(everySignalThatCanBeBlocked(), whenMaking);
    EXPECT_EQ(everySignalThatCanBeBlocked(), whenHandling);
}

TEST_F(ListenerSignals, OfTheStartingThreadStayAsTheyWere) {
    const BlockedSignals block(setOf(SIGUSR2));
    const std::vector<int> before = blockedSignals();
    ASSERT_THAT(before, Contains(SIGUSR2));
    ASSERT_THAT(before, Not(Contains(SIGUSR1)));

    listener.serve(endpoint);
    EXPECT_EQ(before, blockedSignals());
    EXPECT_TRUE(listener.addListenEndpoint("inproc://signals", error));
    EXPECT_EQ(before, blockedSignals());
    EXPECT_TRUE(listener.stop(error));
    EXPECT_EQ(before, blockedSignals());
}

TEST_F(ListenerSignals, OfTheStartingThreadStayAsTheyWereWhenNoThreadCanBeMade) {
    const BlockedSignals block(setOf(SIGUSR2));
    const std::vector<int> before = blockedSignals();
    const ThreadFault fault(EAGAIN);

    EXPECT_THROW(listener.start(error), std::system_error);

    EXPECT_EQ(before, blockedSignals());
}

TEST_F(ListenerSignals, OfTheProcessAreTakenByTheApplicationsThreadsAlone) {
    serve();
    // Nobody but the listener could take them while this thread has them wait.
    const sigset_t signals = setOf(SIGUSR1);
    const BlockedSignals block(signals);
    const timespec patience{20, 0};
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(0, kill(getpid(), SIGUSR1));
        ASSERT_EQ(SIGUSR1, sigtimedwait(&signals, nullptr, &patience));
    }
    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(ListenerSignals, OfTheProcessEndNoListenerInAStorm) {
    serve();

    for (int round = 0; round < 10000; ++round) {
        ASSERT_EQ(0, kill(getpid(), SIGUSR1));
    }

    EXPECT_EQ("question", ask(endpoint, "question"));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

TEST_F(ListenerSignals, SentToTheThreadItselfWait) {
    pthread_t thread{};
    std::vector<int> pending;
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        thread = pthread_self();
        pending = pendingSignals();
        echo(text, socket);
    });
    serve();
    ask(endpoint, "first");
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms", 2));
    ASSERT_EQ(0, pthread_kill(thread, SIGUSR1));

    EXPECT_EQ("second", ask(endpoint, "second"));

    ASSERT_TRUE(listener.stop(error));
    EXPECT_THAT(pending, Contains(SIGUSR1));
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
