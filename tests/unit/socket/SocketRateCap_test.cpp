#include "support/Test.h"

#include <zmq.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <random>

namespace rk::tests {

namespace {

constexpr unsigned int mega = 1048576;

class SocketRateCap : public testing::Test {
protected:
    SocketRateCap() {
        socket.create(Protocol::Pub);
        standIn.setClock(1000.0);
        standIn.journal().clear();
    }

    std::vector<std::string> pauses() { return standIn.journal().linesWith("usleep"); }

    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

} // namespace

TEST_F(SocketRateCap, PausesUntilTheDueTime) {
    standIn.setClock(1700000000.0);
    socket.setTargetBitRate(10);
    socket.handleBitRateCapping(0);
    socket.handleBitRateCapping(mega / 8);
    EXPECT_THAT(pauses(), ElementsAre("usleep 99999")); // of 0.1 s, in the precision of the clock
}

TEST_F(SocketRateCap, SkipsThePauseWhenDueNow) {
    socket.setTargetBitRate(8);
    socket.handleBitRateCapping(mega);
    standIn.setClock(1001.0);

    socket.handleBitRateCapping(mega);

    EXPECT_THAT(pauses(), IsEmpty());
}

TEST_F(SocketRateCap, CountsFromTheEndOfThePause) {
    socket.setTargetBitRate(8);
    socket.handleBitRateCapping(mega);
    standIn.after("usleep", [&] { standIn.setClock(1005.0); });
    socket.handleBitRateCapping(mega);
    standIn.setClock(1005.25);

    socket.handleBitRateCapping(mega);

    EXPECT_THAT(pauses(), ElementsAre("usleep 1000000", "usleep 750000"));
}

TEST_F(SocketRateCap, IgnoresTheClockAtRateZero) {
    socket.handleBitRateCapping(mega);
    socket.setTargetBitRate(0);
    socket.handleBitRateCapping(mega);
    sendText(socket, "news");

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("zmq_send 4 bytes, flags 0"));
}

TEST_F(SocketRateCap, KeepsTheTimeWhileOff) {
    socket.setTargetBitRate(8);
    socket.handleBitRateCapping(mega);
    socket.setTargetBitRate(0);
    socket.handleBitRateCapping(mega);
    standIn.setClock(1000.25);
    socket.setTargetBitRate(8);

    socket.handleBitRateCapping(mega);

    EXPECT_THAT(pauses(), ElementsAre("usleep 750000"));
}

TEST_F(SocketRateCap, FollowsTheSendAndTheStatistics) {
    socket.setTargetBitRate(8);
    socket.activateStatistics(true);
    sendText(socket, std::string(mega, 'x'));
    sendText(socket, std::string(mega, 'x'));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_send 1048576 bytes, flags 0", "gettimeofday", "gettimeofday",
                            "zmq_send 1048576 bytes, flags 0", "gettimeofday", "usleep 1000000", "gettimeofday"));
}

TEST_F(SocketRateCap, TakesSizesModulo32Bits) {
    socket.setTargetBitRate(8);
    sendText(socket, "first");
    standIn.answer("zmq_send", 0);

    socket.send(nullptr, static_cast<unsigned long>(4294967296ULL + mega / 2));

    EXPECT_THAT(pauses(), ElementsAre("usleep 500000"));
}

TEST_F(SocketRateCap, AcceptsTheGreatestRate) {
    socket.setTargetBitRate(std::numeric_limits<unsigned int>::max());
    socket.handleBitRateCapping(0);

    socket.handleBitRateCapping(std::numeric_limits<unsigned int>::max());

    EXPECT_THAT(pauses(), ElementsAre("usleep 7"));
}

TEST_F(SocketRateCap, SleepsLongPausesInPieces) {
    socket.setTargetBitRate(1);
    socket.handleBitRateCapping(0);

    socket.handleBitRateCapping(std::numeric_limits<unsigned int>::max());

    std::vector<std::string> pieces(7, "usleep 4294967295");
    pieces.emplace_back("usleep 2703228927"); // of 32,767.999992 s
    EXPECT_THAT(pauses(), ElementsAreArray(pieces));
}

TEST_F(SocketRateCap, SleepsOnceWhenItFits) {
    socket.setTargetBitRate(1);
    standIn.setClock(2.0);
    socket.handleBitRateCapping(0);

    socket.handleBitRateCapping(562949953); // 4,294,967,292 microseconds
    socket.handleBitRateCapping(562949954); // 4,294,967,300

    EXPECT_THAT(pauses(), ElementsAre("usleep 4294967292", "usleep 4294967295", "usleep 5"));
}

/// By how many seconds the clock is set back.
class SocketRateCapClockBack : public SocketRateCap, public testing::WithParamInterface<double> {};

INSTANTIATE_TEST_SUITE_P(By, SocketRateCapClockBack, testing::Values(0.25, 1.0, 3600.0, 1699990000.0));

TEST_P(SocketRateCapClockBack, Pauses) {
    standIn.setClock(1700000000.0);
    socket.setTargetBitRate(8);
    socket.handleBitRateCapping(mega);
    standIn.setClock(1700000000.0 - GetParam());

    socket.handleBitRateCapping(mega);
    socket.handleBitRateCapping(mega);

    EXPECT_THAT(pauses(), ElementsAre("usleep 1000000", "usleep 1000000"));
}

TEST_F(SocketRateCap, StartsBelowOneSecond) {
    standIn.setClock(0.0);
    socket.setTargetBitRate(8);
    socket.handleBitRateCapping(mega);
    standIn.setClock(0.75);
    socket.handleBitRateCapping(mega);
    EXPECT_EQ(2U, standIn.journal().count("gettimeofday"));
    standIn.setClock(1.0);
    socket.handleBitRateCapping(mega);
    EXPECT_THAT(pauses(), IsEmpty());

    socket.handleBitRateCapping(mega);

    EXPECT_THAT(pauses(), ElementsAre("usleep 1000000"));
}

TEST_F(SocketRateCap, TreatsAFailedClockAsZero) {
    socket.setTargetBitRate(8);
    standIn.fail("gettimeofday", EFAULT, 1, StandIn::always);

    socket.handleBitRateCapping(mega);
    socket.handleBitRateCapping(mega);

    EXPECT_THAT(standIn.journal().lines(), ElementsAre("gettimeofday", "gettimeofday"));
}

TEST_F(SocketRateCap, IgnoresAPauseThatFails) {
    socket.setTargetBitRate(8);
    sendText(socket, "first");
    standIn.fail("usleep", EINTR);

    EXPECT_NO_THROW(sendText(socket, std::string(mega, 'x')));

    EXPECT_THAT(pauses(), ElementsAre("usleep 1000000"));
}

TEST(SocketRateCapWallClock, KeepsTheRate) {
    Socket socket("cmd", ClosePolicy::DropPending);
    socket.create(Protocol::Pub);
    socket.setTargetBitRate(8);
    const auto start = std::chrono::steady_clock::now();

    for (int block = 0; block < 11; ++block) {
        sendText(socket, std::string(mega / 500, 'x'));
    }

    const auto least = std::chrono::microseconds(10 * 2000 - 100);
    EXPECT_GE(std::chrono::steady_clock::now() - start, least);
}

TEST_F(SocketRateCap, KeepsToTheRateForManyBlocks) {
    std::mt19937 random;
    double now = 1000.0;
    double last = 0.0;
    for (int number = 0; number < 3000; ++number) {
        const unsigned int rate = 1 + static_cast<unsigned int>(random() % (number % 5 == 0 ? 4000000000U : 500U));
        const auto size = static_cast<unsigned int>(random() % (rate > 1000 ? 4294967296UL : 1000000UL));
        socket.setTargetBitRate(rate);
        standIn.setClock(now);
        standIn.journal().clear();
        socket.handleBitRateCapping(size);
        const double pause =
            number == 0 ? 0.0 : std::max(0.0, last + size * 8.0 / (rate * static_cast<double>(mega)) - now);
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

} // namespace rk::tests
