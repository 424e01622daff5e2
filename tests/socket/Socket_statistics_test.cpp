#include "support/Feed.h"
#include "support/StandIn.h"
#include "support/Texts.h"

#include <rk/socket/Socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zmq.h>

#include <limits>
#include <string>

namespace rk::tests {

namespace {

using socket::Socket;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;

class Statistics : public testing::Test {
protected:
    Statistics() { standIn.setClock(100.0); }

    /// Counts a period of 50 blocks, the last of them `elapsed` seconds after the first.
    void countPeriod(unsigned int size, double elapsed) {
        standIn.setClock(100.0);
        count(49, size);
        standIn.setClock(100.0 + elapsed);
        count(1, size);
    }

    void count(int blocks, unsigned int size) {
        for (int block = 0; block < blocks; ++block) {
            socket.addBlockToStatistics(size);
        }
    }

    static std::string rate(const std::string& megabytes, const std::string& megabits, const std::string& blocks) {
        return "debug: [Socket cmd]: Rate is " + megabytes + " Mbytes/s = " + megabits + " Mbits/s, " + blocks +
               " Blocks/s";
    }

    std::size_t lineCount() { return standIn.journal().count("debug: "); }

    StandIn standIn;
    Socket socket{"cmd", ClosePolicy::DropPending};
};

} // namespace

TEST_F(Statistics, LogTheRatesOfFiftyBlocks) {
    countPeriod(1048576, 1.0);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("gettimeofday", "gettimeofday", rate("50.000000", "400.000000", "50.000000")));
}

TEST_F(Statistics, PrintSixDigitsAndNoGrouping) {
    countPeriod(1048576, 0.015625);

    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre(rate("3200.000000", "25600.000000", "3200.000000")));
}

TEST_F(Statistics, RoundWhatSixDigitsCannotHold) {
    countPeriod(1000, 3.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("0.015895", "0.127157", "16.666667")));
}

TEST_F(Statistics, SumTheSizesOfDifferentBlocks) {
    standIn.setClock(100.0);
    socket.addBlockToStatistics(1);
    count(48, 0);
    standIn.setClock(102.0);
    socket.addBlockToStatistics(2097151);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("1.000000", "8.000000", "25.000000")));
}

TEST_F(Statistics, CountABlockOfZeroBytes) {
    countPeriod(0, 1.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("0.000000", "0.000000", "50.000000")));
}

TEST_F(Statistics, ReadTheClockAtTheFirstBlockOfAPeriodAndAtTheLast) {
    count(1, 10);
    EXPECT_EQ(1U, standIn.journal().count("gettimeofday"));
    count(48, 10);
    EXPECT_EQ(1U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, lineCount());
    count(1, 10);
    EXPECT_EQ(2U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(1U, lineCount());
}

TEST_F(Statistics, StartTheNextPeriodWithItsOwnFirstBlock) {
    countPeriod(1048576, 1.0);
    standIn.setClock(200.0);
    standIn.journal().clear();

    count(49, 1048576);
    EXPECT_EQ(0U, lineCount());
    standIn.setClock(202.0);
    count(1, 1048576);

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("gettimeofday", "gettimeofday", rate("25.000000", "200.000000", "25.000000")));
}

TEST_F(Statistics, WithoutElapsedTimePrintAnInfiniteRate) {
    countPeriod(10, 0.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("inf", "inf", "inf")));
}

TEST_F(Statistics, WithoutElapsedTimeOrBytesPrintAnUndefinedRate) {
    countPeriod(0, 0.0);

    // The sign of an undefined result is the processor's choice.
    EXPECT_THAT(standIn.journal().linesWith("debug: "),
                ElementsAre(AnyOf(rate("nan", "nan", "inf"), rate("-nan", "-nan", "inf"))));
}

TEST_F(Statistics, PrintANegativeRateWhenTheClockIsSetBack) {
    countPeriod(1048576, -1.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("-50.000000", "-400.000000", "-50.000000")));
}

TEST_F(Statistics, WrapTheSumOfBytesAt32Bits) {
    standIn.setClock(100.0);
    socket.addBlockToStatistics(std::numeric_limits<unsigned int>::max());
    socket.addBlockToStatistics(1);
    count(47, 0);
    EXPECT_EQ(0U, lineCount());
    standIn.setClock(101.0);
    socket.addBlockToStatistics(1048576);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("1.000000", "8.000000", "50.000000")));
}

TEST_F(Statistics, AreCountedByTheHookThoughTheyAreOff) {
    socket.activateStatistics(false);

    countPeriod(1048576, 1.0);

    EXPECT_EQ(1U, lineCount());
}

TEST_F(Statistics, DiscardAPartOfAPeriodWhenSwitchedOn) {
    count(49, 1048576);
    socket.activateStatistics(true);

    countPeriod(1048576, 2.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("25.000000", "200.000000", "25.000000")));
}

TEST_F(Statistics, DiscardAPartOfAPeriodWhenSwitchedOff) {
    count(49, 1048576);
    socket.activateStatistics(false);

    countPeriod(1048576, 2.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("25.000000", "200.000000", "25.000000")));
}

TEST_F(Statistics, AreOffAtFirst) {
    socket.create(Protocol::Pub);
    standIn.journal().clear();

    for (int block = 0; block < 100; ++block) {
        sendText(socket, "news");
    }

    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, lineCount());
}

TEST_F(Statistics, CountNothingOnceTheyAreSwitchedOff) {
    socket.create(Protocol::Pub);
    socket.activateStatistics(true);
    socket.activateStatistics(false);
    standIn.journal().clear();

    for (int block = 0; block < 100; ++block) {
        sendText(socket, "news");
    }

    EXPECT_EQ(0U, standIn.journal().count("gettimeofday"));
    EXPECT_EQ(0U, lineCount());
}

TEST_F(Statistics, SurviveCloseAndCreateInTheMiddleOfAPeriod) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    for (int block = 1; block < 50; ++block) {
        sendText(socket, "news");
    }

    socket.close();
    socket.create(Protocol::Pub);
    EXPECT_EQ(0U, lineCount());
    standIn.setClock(101.0);
    sendText(socket, std::string(1048576 - 49 * 4, 'x'));

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("1.000000", "8.000000", "50.000000")));
}

TEST_F(Statistics, OfASocketThatSendsLogTheFiftiethBlockAndTheHundredth) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    for (int block = 1; block <= 100; ++block) {
        sendText(socket, "news");
        EXPECT_EQ(static_cast<std::size_t>(block / 50), lineCount());
    }
}

TEST_F(Statistics, CountWhatIsSentAndWhatIsReceivedInOnePeriod) {
    const socket::SocketEndpoint endpoint = freshEndpoint(socket::Transport::Inproc);
    Socket server("server", ClosePolicy::DropPending);
    server.createAndConnect(Protocol::Rep, endpoint, 20000);
    socket.createAndConnect(Protocol::Req, endpoint, 20000);
    socket.activateStatistics(true);
    for (int exchange = 1; exchange <= 25; ++exchange) {
        EXPECT_EQ(0U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
        sendText(socket, "question");
        receiveText(server);
        sendText(server, "answer");
        receiveText(socket);
    }

    EXPECT_EQ(1U, standIn.journal().count("debug: [Socket cmd]: Rate is "));
}

TEST_F(Statistics, CountABlockOf4GigabytesModulo32Bits) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    for (int block = 1; block < 50; ++block) {
        sendText(socket, "");
    }
    standIn.setClock(101.0);
    standIn.answer("zmq_send", 0);
    socket.send(nullptr, 4294967296UL + 1048576UL);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("1.000000", "8.000000", "50.000000")));
}

TEST_F(Statistics, CountAnEmptyBlockThatIsSent) {
    socket.activateStatistics(true);
    socket.create(Protocol::Pub);
    for (int block = 0; block < 50; ++block) {
        standIn.setClock(100.0 + block / 49);
        socket.send(nullptr, 0);
    }

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("0.000000", "0.000000", "50.000000")));
}

TEST_F(Statistics, WithoutAClockTakeItForZero) {
    standIn.fail("gettimeofday", EFAULT);
    countPeriod(1048576, -50.0);

    EXPECT_THAT(standIn.journal().linesWith("debug: "), ElementsAre(rate("1.000000", "8.000000", "1.000000")));
}

} // namespace rk::tests
