#include "support/Test.h"

#include <limits>
#include <ostream>

namespace rk::tests {

namespace {

constexpr unsigned int mega = 1048576;

/// 49 blocks of one size, a last one `elapsed` seconds after the first, and the rates that are logged.
struct Period {
    const char* name;
    unsigned int size;
    unsigned int lastSize;
    double elapsed;
    const char* rates;
};

void PrintTo(const Period& period, std::ostream* out) {
    *out << period.name;
}

class SocketStatistics : public testing::TestWithParam<Period> {
protected:
    SocketStatistics() { standIn.setClock(100.0); }

    void count(int blocks, unsigned int size) {
        for (int block = 0; block < blocks; ++block) {
            socket.addBlockToStatistics(size);
        }
    }

    std::vector<std::string> lines() { return standIn.journal().linesWith("debug: "); }

    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
    const std::string begin = "debug: [Socket cmd]: Rate is ";
    const std::string megabyte = begin + "1.000000 Mbytes/s = 8.000000 Mbits/s, 50.000000 Blocks/s";
};

constexpr unsigned int greatest = std::numeric_limits<unsigned int>::max();

INSTANTIATE_TEST_SUITE_P(
    Of, SocketStatistics,
    testing::Values(
        Period{"Megabytes", mega, mega, 1.0, "50.000000 Mbytes/s = 400.000000 Mbits/s, 50.000000 Blocks/s"},
        Period{"AShortTime", mega, mega, 0.015625, "3200.000000 Mbytes/s = 25600.000000 Mbits/s, 3200.000000 Blocks/s"},
        Period{"Thirds", 1000, 1000, 3.0, "0.015895 Mbytes/s = 0.127157 Mbits/s, 16.666667 Blocks/s"},
        Period{"Nothing", 0, 0, 1.0, "0.000000 Mbytes/s = 0.000000 Mbits/s, 50.000000 Blocks/s"},
        Period{"NoTime", 10, 10, 0.0, "inf Mbytes/s = inf Mbits/s, inf Blocks/s"},
        Period{"TimeBack", mega, mega, -1.0, "-50.000000 Mbytes/s = -400.000000 Mbits/s, -50.000000 Blocks/s"},
        Period{"AWrap", greatest, mega + 49, 1.0, "1.000000 Mbytes/s = 8.000000 Mbits/s, 50.000000 Blocks/s"}),
    [](const auto& tested) { return std::string(tested.param.name); });

} // namespace

TEST_P(SocketStatistics, LogTheRatesOfFiftyBlocks) {
    for (int round = 0; round < 2; ++round) {
        standIn.journal().clear();
        standIn.setClock(100.0 + 10 * round);
        count(49, GetParam().size);
        EXPECT_THAT(standIn.journal().lines(), ElementsAre("gettimeofday"));
        standIn.setClock(100.0 + 10 * round + GetParam().elapsed);
        count(1, GetParam().lastSize);
        EXPECT_THAT(standIn.journal().lines(), ElementsAre("gettimeofday", "gettimeofday", begin + GetParam().rates));
    }
}

TEST_F(SocketStatistics, LogNanWithoutBytes) {
    count(50, 0);

    // The sign depends on the processor.
    EXPECT_THAT(lines(), ElementsAre(testing::AnyOf(begin + "nan Mbytes/s = nan Mbits/s, inf Blocks/s",
                                                    begin + "-nan Mbytes/s = -nan Mbits/s, inf Blocks/s")));
}

TEST_F(SocketStatistics, RestartWhenSwitchedOnOrOff) {
    for (const bool active : {true, false}) {
        standIn.setClock(100.0);
        standIn.journal().clear();
        count(49, mega);
        socket.activateStatistics(active);
        count(49, 0);
        EXPECT_THAT(lines(), ElementsAre());
        standIn.setClock(101.0);
        count(1, mega);
        EXPECT_THAT(lines(), ElementsAre(megabyte));
    }
}

TEST_F(SocketStatistics, ReadNoClockWhileOff) {
    socket.create(Protocol::Pub);
    for (int round = 0; round < 2; ++round) {
        standIn.journal().clear();
        for (int block = 0; block < 100; ++block) {
            sendText(socket, "news");
        }
        EXPECT_EQ(100U, standIn.journal().lines().size());
        socket.activateStatistics(true);
        socket.activateStatistics(false);
    }
}

TEST_F(SocketStatistics, CountASizeModulo32Bits) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    for (int block = 1; block < 50; ++block) {
        socket.send(nullptr, 0);
    }
    standIn.setClock(101.0);
    standIn.answer("zmq_send", 0);
    socket.send(nullptr, static_cast<unsigned long>(4294967296ULL + mega));

    EXPECT_THAT(lines(), ElementsAre(megabyte));
}

TEST_F(SocketStatistics, TreatAFailedClockAsZero) {
    standIn.fail("gettimeofday", EFAULT);
    count(49, 0);
    standIn.setClock(50.0);
    count(1, 50 * mega);

    EXPECT_THAT(lines(), ElementsAre(begin + "1.000000 Mbytes/s = 8.000000 Mbits/s, 1.000000 Blocks/s"));
}

TEST_F(SocketStatistics, CountExchangesInOnePeriod) {
    const SocketEndpoint endpoint = freshEndpoint(Transport::Inproc);
    Peer server("server", Protocol::Rep, endpoint);
    socket.createAndConnect(Protocol::Req, endpoint, patienceMs);
    socket.activateStatistics(true);
    for (int exchange = 0; exchange < 25; ++exchange) {
        EXPECT_EQ(0U, standIn.journal().count(begin));
        sendText(socket, "question");
        receiveText(server);
        sendText(server, "answer");
        receiveText(socket);
    }
    EXPECT_EQ(1U, standIn.journal().count(begin));
}

} // namespace rk::tests
