#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <rk/socket/SocketContext.h>

#include <zmq.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <future>
#include <new>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

namespace rk::tests {

namespace {

using testing::ExitedWithCode;

static_assert(std::is_convertible_v<SocketContext*, rk::utils::MessageFormatter*>);
static_assert(std::is_default_constructible_v<SocketContext>);
static_assert(!std::is_copy_constructible_v<SocketContext>);
static_assert(!std::is_copy_assignable_v<SocketContext>);
static_assert(!std::is_move_constructible_v<SocketContext>);
static_assert(!std::is_move_assignable_v<SocketContext>);
static_assert(!std::has_virtual_destructor_v<SocketContext>);

/// Long enough for a second thread to enter a section that it must not enter.
constexpr std::chrono::milliseconds intrusion{100};

const std::vector<std::string> shutdownJournal = {"debug: [SocketContext]: Terminating 0MQ context",
                                                  "zmq_term",
                                                  "debug: [SocketContext]: Terminating 0MQ context Done",
                                                  "debug: [SocketContext]: Destroying 0MQ context",
                                                  "zmq_ctx_destroy",
                                                  "debug: [SocketContext]: Destroying 0MQ context Done"};

/// Blocks in a receive until it fails. Closes the socket and returns the error.
int errorOfBlockedReceive(ZmqHandle socket) {
    zmq_setsockopt(socket.get(), ZMQ_RCVTIMEO, &patienceMs, sizeof patienceMs);
    char byte = 0;
    return zmq_recv(socket.get(), &byte, 1, 0) < 0 ? zmq_errno() : 0;
}

/// Exits the process of a death test. The exit status is the result of the test.
[[noreturn]] void endProcess() {
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

/// Runs each test in a separate process, which has no context yet.
class SocketContextDeathTest : public testing::Test {
protected:
    SocketContextDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void callGetSocketFromTwoThreads() {
    StandIn standIn;
    bool constructedTwice = false;
    standIn.after("zmq_ctx_new", [&] { constructedTwice = standIn.journal().waitFor("zmq_ctx_new", 2, intrusion); });
    auto other = std::async(std::launch::async, [] { return ZmqHandle(getSocket(Protocol::Pub)); });

    const ZmqHandle first(getSocket(Protocol::Sub));
    const ZmqHandle second = other.get();

    EXPECT_FALSE(constructedTwice);
    EXPECT_EQ(1U, standIn.journal().count("zmq_ctx_new"));
    EXPECT_NE(nullptr, first);
    EXPECT_NE(nullptr, second);
}

void useSocketsWithoutCreatingOne() {
    StandIn standIn;
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.close();
    socket.resetConnections();
    EXPECT_THROW(socket.connect(SocketEndpoint(), 0), std::runtime_error);
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());
}

void createWithoutContext() {
    StandIn standIn;
    standIn.fail("zmq_ctx_new", EMFILE);
    for (int attempt = 0; attempt < 2; ++attempt) {
        Socket socket("cmd", ClosePolicy::DropPending);
        try {
            socket.create(Protocol::Req);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ("Socket: Failed creating socket [Socket cmd] of type 4: Bad address on [Socket cmd]",
                         failure.what());
        }
    }
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_ctx_new", "zmq_socket 3", "zmq_socket 3"));
}

/// Occupies all descriptors of the process until some are released. Restores the limit on scope exit.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit few{64, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        for (int taken = dup(STDERR_FILENO); taken >= 0; taken = dup(STDERR_FILENO)) {
            held.push_back(taken);
        }
    }
    ~NoDescriptors() {
        setrlimit(RLIMIT_NOFILE, &before);
        giveBack(held.size());
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

    void giveBack(std::size_t count) {
        for (; count > 0; --count) {
            close(held.back());
            held.pop_back();
        }
    }

private:
    rlimit before{};
    std::vector<int> held;
};

void createWithFewDescriptors() {
    NoDescriptors descriptors;
    Socket first("cmd", ClosePolicy::DropPending);
    Socket second("news", ClosePolicy::DropPending);

    for (int left = 0; left < 6; ++left) {
        EXPECT_EQ("Socket: Failed creating socket [Socket cmd] of type 4: Too many open files on [Socket cmd]",
                  textThrownBy([&] { first.create(Protocol::Req); }));
        descriptors.giveBack(1);
    }
    EXPECT_NO_THROW(first.create(Protocol::Req));
    descriptors.giveBack(1);
    EXPECT_NO_THROW(second.create(Protocol::Sub));
}

/// Closes standard input first, so that the first new descriptor is 0.
void createWithoutStandardInput() {
    close(STDIN_FILENO);
    Socket socket("cmd", ClosePolicy::DropPending);
    EXPECT_NO_THROW(socket.create(Protocol::Req));
}

/// Checks the end of the context in its destructor. Created before the context, so that it is destroyed later.
struct Verdict {
    ~Verdict() { _exit(overlapped ? 1 : 0); }
    std::atomic<bool> overlapped{false};
};

[[noreturn]] void exitWhileASocketIsMade() {
    static Verdict verdict;
    static StandIn standIn;
    std::promise<void> making;
    const ContextOfTheProcess context;
    standIn.after("zmq_socket", [&] {
        making.set_value();
        verdict.overlapped = standIn.journal().waitFor("zmq_term", 1, intrusion);
    });
    std::thread([] { ZmqHandle(getSocket(Protocol::Pub)).reset(); }).detach();
    making.get_future().wait();
    std::exit(2);
}

class SocketContextOfNoPattern : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(GetSocket, SocketContextOfNoPattern, testing::Values(0, 5, -1));

} // namespace

TEST_F(SocketContextDeathTest, CreatesOneInTwoThreads) {
    EXPECT_EXIT((callGetSocketFromTwoThreads(), endProcess()), ExitedWithCode(0), "");
}

TEST_F(SocketContextDeathTest, IsNotCreatedEarly) {
    EXPECT_EXIT((useSocketsWithoutCreatingOne(), endProcess()), ExitedWithCode(0), "");
}

TEST_F(SocketContextDeathTest, ReportsAFailedCreation) {
    EXPECT_EXIT((createWithoutContext(), endProcess()), ExitedWithCode(0), "");
}

TEST_F(SocketContextDeathTest, NeedsSixDescriptors) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors to look at an object";
#endif
    EXPECT_EXIT((createWithFewDescriptors(), endProcess()), ExitedWithCode(0), "");
}

TEST_F(SocketContextDeathTest, StartsWithoutInput) {
    EXPECT_EXIT((createWithoutStandardInput(), endProcess()), ExitedWithCode(0), "");
}

TEST_F(SocketContextDeathTest, EndsAfterCreation) {
    EXPECT_EXIT(exitWhileASocketIsMade(), ExitedWithCode(0), "");
}

TEST_P(SocketContextOfNoPattern, IsNull) {
    const ContextOfTheProcess context;
    StandIn standIn;

    EXPECT_EQ(nullptr, getSocket(static_cast<Protocol::Protocol>(GetParam())));
    EXPECT_EQ(EINVAL, zmq_errno());

    EXPECT_NE(nullptr, ZmqHandle(getSocket(Protocol::Pub)));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_socket -1", "zmq_socket 1"));
}

TEST(SocketContext, CreatesOneAtATime) {
    SocketContext context;
    StandIn standIn;
    std::atomic<bool> first{true};
    std::atomic<bool> overlapped{false};
    standIn.after("zmq_socket", [&] {
        if (first.exchange(false)) {
            overlapped = standIn.journal().waitFor("zmq_socket", 2, intrusion);
        }
    });
    auto other = std::async(std::launch::async, [&] { return ZmqHandle(context.createSocket(Protocol::Pub)); });
    ZmqHandle(context.createSocket(Protocol::Sub)).reset();
    other.get();
    EXPECT_EQ(2U, standIn.journal().count("zmq_socket"));
    EXPECT_FALSE(overlapped);
}

TEST(SocketContext, IsCreatedByTheConstructor) {
    StandIn standIn;
    const SocketContext context;

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_ctx_new"));
}

TEST(SocketContext, LogsEachStepOfItsEnd) {
    StandIn standIn;
    {
        const SocketContext context;
        standIn.journal().clear();
    }
    EXPECT_EQ(shutdownJournal, standIn.journal().lines());
}

TEST(SocketContext, EndsWhenLoggingFails) {
    StandIn standIn;
    {
        const SocketContext context;
        standIn.journal().clear();
        standIn.after("debug", [] { throw std::bad_alloc(); });
    }
    EXPECT_EQ(shutdownJournal, standIn.journal().lines());
}

TEST(SocketContext, LeavesAContextInItsMemory) {
    StandIn standIn;
    std::vector<std::unique_ptr<ZmqContext>> others;
    standIn.after("zmq_term", [&] {
        for (int number = 0; number < 8; ++number) {
            others.push_back(std::make_unique<ZmqContext>());
        }
    });

    std::make_unique<SocketContext>().reset();

    ASSERT_EQ(8U, others.size());
    for (const auto& other : others) {
        EXPECT_NE(nullptr, other->socket(ZMQ_PUB));
    }
}

TEST(SocketContext, WakesAndWaitsForItsSockets) {
    StandIn standIn;
    auto context = std::make_unique<SocketContext>();
    ZmqHandle open(context->createSocket(Protocol::Req));
    std::atomic<bool> closing{false};
    bool waited = false;
    standIn.after("zmq_term", [&] { waited = closing; });
    auto error = std::async(std::launch::async, [&, blocked = context->createSocket(Protocol::Sub)] {
        const int received = errorOfBlockedReceive(ZmqHandle(blocked));
        closing = true;
        open.reset();
        return received;
    });

    context.reset();

    EXPECT_EQ(ETERM, error.get());
    EXPECT_TRUE(waited);
}

TEST(SocketContext, IsEndedByTheSecondCall) {
    StandIn standIn;
    auto context = std::make_unique<SocketContext>();
    auto error = std::async(std::launch::async, errorOfBlockedReceive, ZmqHandle(context->createSocket(Protocol::Sub)));
    standIn.fail("zmq_term", EINTR);
    standIn.journal().clear();

    context.reset();

    EXPECT_EQ(ETERM, error.get());
    EXPECT_EQ(shutdownJournal, standIn.journal().lines());
}

TEST(SocketContext, CreatesNoSocketWithoutAContext) {
    StandIn standIn;
    standIn.fail("zmq_ctx_new", ENOMEM);
    SocketContext context;

    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(nullptr, context.createSocket(Protocol::Pub));
        EXPECT_EQ(EFAULT, zmq_errno());
    }

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_ctx_new", "zmq_socket 1", "zmq_socket 1"));
}

} // namespace rk::tests
