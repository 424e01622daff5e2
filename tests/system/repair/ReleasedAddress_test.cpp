#include "support/Test.h"

#include <zmq.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

/// Returns the number of rounds: a thousand, or fewer under a slow tool.
int rounds() {
    const char* const text = std::getenv("RK_TEST_ROUNDS");
    return text != nullptr ? std::atoi(text) : 1000;
}

/// Keeps every core busy during its lifetime.
class Load {
public:
    Load() {
        for (unsigned int core = 0; core < std::thread::hardware_concurrency(); ++core) {
            burners.emplace_back([this] {
                while (!done) {
                }
            });
        }
    }
    ~Load() {
        done = true;
        for (std::thread& burner : burners) {
            burner.join();
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::atomic<bool> done{false};
    std::vector<std::thread> burners;
};

std::string ask(const SocketEndpoint& endpoint, const std::string& question) {
    Peer client("client", Protocol::Req, endpoint);
    sendText(client, question);
    return receiveText(client);
}

void expectService(Socket& server, const SocketEndpoint& endpoint) {
    auto answer = std::async(std::launch::async, [&] { return ask(endpoint, "question"); });
    EXPECT_EQ("question", receiveText(server));
    sendText(server, "answer");
    EXPECT_EQ("answer", answer.get());
}

class ReleasedAddress : public testing::TestWithParam<Transport::Transport> {
protected:
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(GetParam());

    void rebuildJammedReplySockets() {
        Peer server("server", Protocol::Rep, endpoint);
        for (int round = 0; round < rounds(); ++round) {
            standIn.journal().clear();
            auto unanswered = std::make_unique<Socket>("unanswered", ClosePolicy::DropPending);
            unanswered->createAndConnect(Protocol::Req, endpoint, patienceMs);
            sendText(*unanswered, "first");
            ASSERT_EQ("first", receiveText(server));
            unanswered.reset();
            auto answer = std::async(std::launch::async, [&] {
                standIn.journal().waitFor("debug: Connected [Socket server]");
                return ask(endpoint, "second");
            });
            ASSERT_EQ("second", receiveText(server));
            sendText(server, "answer");
            ASSERT_EQ("answer", answer.get());
            ASSERT_EQ(1U, standIn.journal().count("warning: "));
            ASSERT_EQ(0U, standIn.journal().count("error: "));
        }
    }

    void createRepeatedly() {
        Socket server("server", ClosePolicy::DropPending);
        for (int round = 0; round < rounds(); ++round) {
            ASSERT_NO_THROW(server.createAndConnect(Protocol::Rep, endpoint, patienceMs)) << "round " << round;
        }
        expectService(server, endpoint);
    }
};

INSTANTIATE_TEST_SUITE_P(On, ReleasedAddress, everyTransport(), nameOfTransport);

} // namespace

TEST_P(ReleasedAddress, IsReboundByAJammedReplier) {
    rebuildJammedReplySockets();
}

TEST_P(ReleasedAddress, IsReboundByAJamWithCoresBusy) {
    const Load load;
    rebuildJammedReplySockets();
}

TEST_P(ReleasedAddress, IsReboundByTheSameSocket) {
    createRepeatedly();
}

TEST_P(ReleasedAddress, IsReboundWithCoresBusy) {
    const Load load;
    createRepeatedly();
}

TEST_P(ReleasedAddress, IsBoundByTheNextSocket) {
    for (int round = 0; round < rounds(); ++round) {
        Socket server("server", ClosePolicy::WaitForDelivery);
        ASSERT_NO_THROW(server.createAndConnect(Protocol::Pub, endpoint, 0)) << "round " << round;
    }
    Peer server("server", Protocol::Rep, endpoint);
    expectService(server, endpoint);
}

TEST_P(ReleasedAddress, IsBoundByOneOfManyThreads) {
    constexpr int threadCount = 8;
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds() / 20; ++round) {
                try {
                    Peer server("server", Protocol::Rep, endpoint, ClosePolicy::DropPending, 0);
                    ++taken;
                } catch (const std::runtime_error&) {
                    // Another thread was faster.
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(taken, 0);
    Peer server("server", Protocol::Rep, endpoint);
    expectService(server, endpoint);
}

TEST_P(ReleasedAddress, IsReboundAfterAFailedConnect) {
    Socket server("server", ClosePolicy::DropPending);
    standIn.fail("zmq_setsockopt " + std::to_string(ZMQ_RCVTIMEO), EINVAL);
    EXPECT_THROW(server.createAndConnect(Protocol::Rep, endpoint, patienceMs), std::runtime_error);

    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);

    expectService(server, endpoint);
}

TEST_P(ReleasedAddress, FailsAtOnceWhenInUse) {
    if (GetParam() == Transport::Ipc) {
        GTEST_SKIP() << "0MQ takes over an ipc path from whoever holds it";
    }
    // Otherwise a port 0 that an earlier test released could cause retries.
    const Peer anyPort("any port", Protocol::Rep, {Transport::Tcp, "*", 0});
    Peer first("first", Protocol::Rep, endpoint, ClosePolicy::DropPending, 0);
    first.close();
    Peer second("second", Protocol::Rep, endpoint, ClosePolicy::DropPending, 0);
    const Clock::time_point start = Clock::now();

    const std::string text = textThrownBy([&] { first.createAndConnect(Protocol::Rep, endpoint, 0); });

    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ("Socket: Failed connecting/binding socket: Address already in use on [Socket first]", text);
}

TEST(ReleasedAddressOfPortZero, IsReboundByItsPort) {
    for (int round = 0; round < rounds() / 10; ++round) {
        Peer server("server", Protocol::Rep, {Transport::Tcp, "*", 0});
        const SocketEndpoint chosen = server.lastEndpoint();
        server.close();
        ASSERT_NO_THROW(server.createAndConnect(Protocol::Rep, chosen, patienceMs)) << round;
    }
}

} // namespace rk::tests
