#include "support/Calls.h"
#include "support/Endpoints.h"
#include "support/Errors.h"
#include "support/Feed.h"
#include "support/Patterns.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <random>
#include <string>
#include <vector>

// Settings, statistics and the rate cap with any number, value and length.

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
using testing::ElementsAre;
namespace ClosePolicy = socket::ClosePolicy;
namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr double mega = 1048576.0;

/// Every power of two that fits, with its neighbours.
std::vector<unsigned int> wholeRange() {
    std::vector<unsigned int> values{0, std::numeric_limits<unsigned int>::max()};
    for (unsigned int power = 1; power != 0; power *= 2) {
        values.insert(values.end(), {power - 1, power, power + 1});
    }
    return values;
}

std::string rateLine(double megabits, double blocks) {
    return "debug: [Socket x]: Rate is " + std::to_string(megabits / 8) + " Mbytes/s = " + std::to_string(megabits) +
           " Mbits/s, " + std::to_string(blocks) + " Blocks/s";
}

class Tuning : public testing::Test {
protected:
    StandIn standIn;
    std::mt19937 random;
    Socket socket{"x", ClosePolicy::DropPending};
    std::string error = "untouched";
};

class TuningOfNames : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Of, TuningOfNames, testing::Values(0, 1, 15, 16, 255, 256, 4097, 1000000));

} // namespace

TEST_F(Tuning, FlushesAnyNumberOfMessages) {
    Feed feed(0, 0);
    for (const int count : {0, 1, 2, 49, 50, 999, 1000, 1001, 7000, 70000}) {
        sendText(feed.publisher, std::string(200000, 'x'));
        sendText(feed.publisher, "");
        for (int number = 0; number < count; ++number) {
            sendText(feed.publisher, std::to_string(number));
        }
        feed.subscriber.flushIncomingMessages();
        sendText(feed.publisher, "after");
        EXPECT_EQ("after", receiveText(feed.subscriber)) << count;
        EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(0, error));
        standIn.journal().clear();
    }
}

TEST_F(Tuning, ReceivesAnyNumberInOrder) {
    Feed feed(0, 0);
    for (int number = 0; number < 20000; ++number) {
        sendText(feed.publisher, std::to_string(number));
    }
    for (int number = 0; number < 20000; ++number) {
        ASSERT_EQ(std::to_string(number), receiveText(feed.subscriber));
    }
}

TEST_F(Tuning, PollsForAsLongAsAsked) {
    socket.create(Protocol::Sub);
    for (const unsigned int timeout : wholeRange()) {
        standIn.journal().clear();
        standIn.answer("zmq_poll", 0);
        EXPECT_EQ(PollResult::Timeout, socket.poll(timeout, error));
        EXPECT_THAT(standIn.journal().lines(),
                    ElementsAre("zmq_poll 1 items, events 1, " + std::to_string(timeout) + " ms"));
    }
    EXPECT_EQ("untouched", error);
}

TEST_F(Tuning, SetsAnyQueueSizeOfAnyPattern) {
    for (const auto pattern : everyPattern) {
        const int option = pattern == Protocol::Pub || pattern == Protocol::Req ? ZMQ_SNDHWM : ZMQ_RCVHWM;
        socket.create(pattern);
        for (const unsigned int value : wholeRange()) {
            const int size = static_cast<int>(value);
            standIn.journal().clear();
            socket.setInternalFifoSize(size);
            EXPECT_EQ(calls::set(option, size), standIn.journal().lines().front());
            EXPECT_EQ(size < 0 ? 2U : 1U, standIn.journal().lines().size()) << size;
        }
    }
}

TEST_F(Tuning, QueuesAsManyAsTheQueueHolds) {
    for (const int size : {1, 2, 10, 999, 1000, 1001, 5000}) {
        Feed feed(size, size);
        for (int number = 0; number < 3 * size; ++number) {
            sendText(feed.publisher, std::to_string(number));
        }
        int received = 0;
        while (feed.subscriber.poll(0, error) == PollResult::Input) {
            EXPECT_EQ(std::to_string(received++), receiveText(feed.subscriber));
        }
        EXPECT_EQ(2 * size, received); // On inproc, both queues are one.
    }
}

TEST_F(Tuning, SetsAnyReceiveTimeout) {
    const SocketEndpoint nobody(Transport::Ipc, "/nonexistent/nobody", 0);
    for (const unsigned int timeout : wholeRange()) {
        const bool accepted = timeout <= 2147483647 || timeout == 4294967295;
        for (int round = 0; round < 2; ++round) {
            socket.create(Protocol::Req);
            standIn.journal().clear();
            if (accepted) {
                socket.connect(nobody, timeout);
            } else {
                EXPECT_THROW(socket.connect(nobody, timeout), std::runtime_error);
            }
            EXPECT_EQ(timeout == 0 ? 0U : 1U,
                      standIn.journal().count(calls::set(ZMQ_RCVTIMEO, static_cast<int>(timeout))));
        }
    }
}

TEST_F(Tuning, LogsEveryPeriodOfTheStatistics) {
    double now = 1000.0;
    for (int period = 0; period < 500; ++period) {
        const double elapsed = std::ldexp(1.0, static_cast<int>(random() % 16) - 6);
        std::uint32_t bytes = 0;
        standIn.journal().clear();
        for (int number = 0; number < 50; ++number) {
            const auto size = static_cast<std::uint32_t>(period % 3 == 0 ? random() : random() % 100000);
            bytes += size;
            standIn.setClock(number == 0 ? now : now + elapsed);
            socket.addBlockToStatistics(size);
            ASSERT_EQ(number == 49 ? 1U : 0U, standIn.journal().count("debug: "));
        }
        ASSERT_THAT(standIn.journal().linesWith("debug: "),
                    ElementsAre(rateLine(bytes * 8.0 / mega / elapsed, 50.0 / elapsed)));
        now += elapsed + 0.5;
    }
}

TEST_F(Tuning, CountsEveryBlockSentOrReceived) {
    Feed feed(0, 0);
    feed.publisher.activateStatistics(true);
    feed.subscriber.activateStatistics(true);
    double now = 1000.0;
    for (int period = 0; period < 20; ++period) {
        std::size_t bytes = 0;
        standIn.journal().clear();
        for (int number = 0; number < 50; ++number) {
            const std::string text(random() % (number % 10 == 0 ? 200000 : 200), 'x');
            bytes += text.size();
            standIn.setClock(number == 0 ? now : now + 0.5);
            sendText(feed.publisher, text);
            EXPECT_EQ(static_cast<int>(text.size()), feed.subscriber.receive(nullptr, 0));
        }
        const std::string rate = std::to_string(static_cast<double>(bytes) * 16.0 / mega) + " Mbits/s, 100.000000";
        EXPECT_THAT(
            standIn.journal().linesWith("debug: "),
            ElementsAre(testing::AllOf(testing::StartsWith("debug: [Socket source]: "), testing::HasSubstr(rate)),
                        testing::AllOf(testing::StartsWith("debug: [Socket feed]: "), testing::HasSubstr(rate))));
        now += 1.0;
    }
}

TEST_F(Tuning, KeepsToTheRateForManyBlocks) {
    double now = 1000.0;
    double last = 0.0;
    for (int number = 0; number < 3000; ++number) {
        const unsigned int rate = 1 + static_cast<unsigned int>(random() % (number % 5 == 0 ? 4000000000U : 500U));
        const auto size = static_cast<unsigned int>(random() % (rate > 1000 ? 4294967296UL : 1000000UL));
        socket.setTargetBitRate(rate);
        standIn.setClock(now);
        standIn.journal().clear();
        socket.handleBitRateCapping(size);
        const double pause = number == 0 ? 0.0 : std::max(0.0, last + size * 8.0 / (rate * mega) - now);
        const auto lines = standIn.journal().linesWith("usleep ");
        double paused = 0.0;
        for (const std::string& line : lines) {
            paused += std::stod(line.substr(7)) / 1000000.0;
        }
        ASSERT_NEAR(pause, paused, 0.000003) << number;
        now = std::floor((now + paused) * 1000000.0 + 0.5) / 1000000.0;
        last = now;
        now += static_cast<double>(random() % 2000) / 1024.0 * (number % 3);
    }
}

TEST_F(Tuning, CapsEveryBlockThatIsSent) {
    socket.create(Protocol::Pub);
    for (const unsigned int rate : wholeRange()) {
        socket.setTargetBitRate(rate);
        standIn.setClock(1000.0);
        sendText(socket, "");
        for (int number = 0; number < 10; ++number) {
            standIn.journal().clear();
            sendText(socket, std::string(131072, 'x'));
            const auto pause = static_cast<unsigned int>(rate == 0 ? 0 : 1000000.0 / rate);
            const auto lines = standIn.journal().linesWith("usleep ");
            ASSERT_EQ(rate == 0 ? 0U : 1U, lines.size()) << rate;
            if (rate != 0) {
                ASSERT_NEAR(pause, std::stod(lines[0].substr(7)), 1.0) << rate;
            }
            if (rate > 100000) {
                break; // The clock has whole microseconds alone.
            }
        }
    }
}

TEST_F(Tuning, OpensManySocketsAgainAndAgain) {
    for (int round = 0; round < 5; ++round) {
        std::list<Socket> sockets;
        std::vector<SocketEndpoint> endpoints;
        for (int number = 0; number < 100; ++number) {
            endpoints.push_back(freshEndpoint(Transport::Inproc));
            sockets.emplace_back("many", ClosePolicy::DropPending)
                .createAndConnect(Protocol::Rep, endpoints.back(), 20000);
        }
        std::size_t number = 0;
        for (Socket& server : sockets) {
            socket.createAndConnect(Protocol::Req, endpoints[number++], 20000);
            sendText(socket, "x");
            EXPECT_EQ("x", receiveText(server));
        }
    }
}

TEST_P(TuningOfNames, StandWholeInEveryText) {
    StandIn standIn;
    const std::string name(GetParam(), 'n');
    Socket named(name, ClosePolicy::DropPending);
    const std::string header = "[Socket " + name + "]";
    const SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    std::string error;

    EXPECT_TRUE(header == named.debugString());
    named.createAndConnect(Protocol::Req, endpoint, 0);
    named.resetConnections();
    EXPECT_TRUE("debug: Connected " + header == standIn.journal().lines().back());
    standIn.fail("zmq_poll", EINTR);
    EXPECT_EQ(PollResult::Failure, named.poll(0, error));
    EXPECT_TRUE("Interrupted system call on " + header == error);
    standIn.fail("zmq_recv", EINTR);
    EXPECT_TRUE("Receive error: Interrupted system call on " + header == textThrownBy([&] { receiveText(named); }));
    for (int block = 0; block < 50; ++block) {
        named.addBlockToStatistics(1);
    }
    EXPECT_EQ(1U, standIn.journal().count("debug: " + header + ": Rate is "));
}

} // namespace rk::tests
