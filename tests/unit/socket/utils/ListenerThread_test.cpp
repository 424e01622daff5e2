#include "support/RecordingListener.h"
#include "support/ThreadFaults.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <thread>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

std::ptrdiff_t entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

/// Waits, because ZeroMQ closes sockets and the kernel removes threads in the background.
bool fallsTo(std::ptrdiff_t limit, const char* folder) {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    while (entriesOf(folder) > limit && Clock::now() < end) {
        std::this_thread::yield();
    }
    return entriesOf(folder) <= limit;
}

class ListenerThread : public ListenerTest {
protected:
    ListenerThread() : ListenerTest(Transport::Tcp) {}
};

} // namespace

TEST_F(ListenerThread, CreatesAndHandlesMessages) {
    std::vector<std::thread::id> threads;
    listener.setMaker([&] {
        threads.push_back(std::this_thread::get_id());
        return std::make_shared<Text>();
    });
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        threads.push_back(std::this_thread::get_id());
        echo(text, socket);
    });
    listener.serve(endpoint);
    ask(endpoint, "one");
    ask(endpoint, "two");
    ASSERT_TRUE(listener.stop(error));

    ASSERT_EQ(4U, threads.size());
    EXPECT_THAT(threads, testing::Each(threads.front()));
    EXPECT_NE(std::this_thread::get_id(), threads.front());
}

TEST_F(ListenerThread, CanStartAfterAFailure) {
    ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Req), error));
    {
        const ThreadFault fault(EAGAIN);
        EXPECT_EQ("Resource temporarily unavailable", textThrownBy<std::system_error>([&] { listener.start(error); }));
    }
    EXPECT_EQ("zmq_close", standIn.journal().lines().back());
    EXPECT_EQ("", error);
    EXPECT_FALSE(listener.isServing());
    standIn.journal().clear();
    EXPECT_TRUE(listener.stop(error));
    EXPECT_THAT(standIn.journal().lines(), ElementsAre());

    ASSERT_TRUE(listener.start(error)) << error;

    EXPECT_EQ("question", ask(endpoint, "question"));
}

TEST_F(ListenerThread, ReleasesAllResources) {
    std::vector<SocketEndpoint> endpoints;
    for (int number = 0; number < 10; ++number) {
        endpoints.push_back(freshEndpoint(number % 2 == 0 ? Transport::Tcp : Transport::Inproc));
    }
    listener.serve(endpoint);
    ask(endpoint, "question");
    ASSERT_TRUE(listener.stop(error));
    const std::ptrdiff_t threads = entriesOf("/proc/self/task");
    const std::ptrdiff_t descriptors = entriesOf("/proc/self/fd");

    for (const SocketEndpoint& other : endpoints) {
        RecordingListener server(Protocol::Rep);
        server.serve(other);
        ask(other, "question");
    }

    EXPECT_TRUE(fallsTo(threads, "/proc/self/task"));
    EXPECT_TRUE(fallsTo(descriptors, "/proc/self/fd"));
    EXPECT_EQ(standIn.journal().count("zmq_socket"), standIn.journal().count("zmq_close"));
}

} // namespace rk::tests
