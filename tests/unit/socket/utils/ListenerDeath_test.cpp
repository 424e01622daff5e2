#include "support/RecordingListener.h"
#include "support/TerminateHandler.h"
#include "support/ThreadFaults.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>

namespace rk::tests {

namespace {

#ifdef __SANITIZE_THREAD__
constexpr bool watchedByThreadSanitizer = true;
#else
constexpr bool watchedByThreadSanitizer = false;
#endif

/// Runs each test in a new process without other threads.
class ListenerDeathTest : public testing::Test {
protected:
    ListenerDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    /// The process ends before the reply would arrive.
    static void sendARequest(RecordingListener& listener) {
        const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
        listener.serve(endpoint);
        ask(endpoint, "question");
    }

    static std::string& error() {
        static std::string text;
        return text;
    }

    [[noreturn]] static void tellAndExit() {
        std::cerr << "at the end: " << error() << "\n";
        exitWithSeven();
    }
};

/// Calls that a listener's thread must not make.
class ListenerMisuseDeathTest : public ListenerDeathTest {
protected:
    void SetUp() override {
        if (watchedByThreadSanitizer) {
            GTEST_SKIP() << "ThreadSanitizer ends the process first: the thread may run before start has returned";
        }
    }
};

} // namespace

TEST_F(ListenerDeathTest, DiesWhenAHandlerThrowsAnInt) {
    EXPECT_EXIT(
        {
            RecordingListener listener(Protocol::Rep);
            listener.setHandler([](Text&, const std::shared_ptr<Socket>&) { throw 1; });
            sendARequest(listener);
        },
        testing::KilledBySignal(SIGABRT), "terminate called after throwing an instance of 'int'");
}

TEST_F(ListenerDeathTest, DiesWhenAMakerThrowsAnInt) {
    EXPECT_EXIT(
        {
            RecordingListener listener(Protocol::Rep);
            listener.setMaker([]() -> std::shared_ptr<google::protobuf::Message> { throw 1; });
            sendARequest(listener);
        },
        testing::KilledBySignal(SIGABRT), "terminate called after throwing an instance of 'int'");
}

TEST_F(ListenerDeathTest, DiesWhenStopCannotJoin) {
    EXPECT_EXIT(
        {
            std::set_terminate(tellAndExit);
            RecordingListener listener(Protocol::Rep);
            listener.serve(freshEndpoint(Transport::Inproc));
            const JoinFault fault(EINVAL);
            listener.stop(error());
        },
        testing::ExitedWithCode(7), "at the end: .Socket Listener rep. Failed joining thread: Invalid argument\n");
}

TEST_F(ListenerDeathTest, DiesWhenItsEndCannotJoin) {
    EXPECT_EXIT(
        {
            const PollsRunOut noWait;
            auto listener = std::make_unique<BareListener>();
            listener->addListenEndpoint(freshEndpoint(Transport::Inproc).toString(Protocol::Rep), error());
            listener->start(error());
            const JoinFault fault(EINVAL);
            listener.reset();
        },
        testing::KilledBySignal(SIGABRT), "terminate called without an active exception");
}

TEST_F(ListenerMisuseDeathTest, HandlerStops) {
    EXPECT_EXIT(
        {
            std::set_terminate(tellAndExit);
            RecordingListener listener(Protocol::Rep);
            listener.setHandler([&](Text&, const std::shared_ptr<Socket>&) { listener.stop(error()); });
            sendARequest(listener);
        },
        testing::ExitedWithCode(7),
        "at the end: .Socket Listener rep. Failed joining thread: Resource deadlock avoided\n");
}

TEST_F(ListenerMisuseDeathTest, MakerStops) {
    EXPECT_EXIT(
        {
            RecordingListener listener(Protocol::Rep);
            listener.setMaker([&] {
                listener.stop(error());
                return std::make_shared<Text>();
            });
            sendARequest(listener);
        },
        testing::KilledBySignal(SIGABRT), "terminate called without an active exception");
}

} // namespace rk::tests
