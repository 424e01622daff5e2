#include "support/Child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using testing::ElementsAre;
using testing::EndsWith;

ChildResult exitAfter(const std::string& scenario) {
    return runChild({RK_EXIT_CHILD, scenario});
}

/// Returns the messages of the log lines, without time and source.
std::vector<std::string> linesOfContext(const ChildResult& result) {
    const std::string header = "[debug] [SocketContext]: ";
    std::vector<std::string> lines;
    for (const std::string& line : result.errorLines) {
        const std::string::size_type found = line.find(header);
        if (found != std::string::npos) {
            lines.push_back(line.substr(found + header.size()));
        }
    }
    return lines;
}

const auto theFourLines = ElementsAre("Terminating 0MQ context", "Terminating 0MQ context Done",
                                      "Destroying 0MQ context", "Destroying 0MQ context Done");

class Exit : public testing::TestWithParam<std::string> {};

std::string scenarioName(const testing::TestParamInfo<std::string>& scenario) {
    std::string name = scenario.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Of, Exit,
                         testing::Values("one-socket", "listeners-running", "threads-blocked", "static-listener",
                                         "exit-from-another-thread", "late-create", "first-sockets-at-once",
                                         "inproc-names-meet", "sockets-being-made", "authenticator-running",
                                         "encrypted-in-a-child"),
                         scenarioName);

} // namespace

TEST_P(Exit, LogsFourLinesTwoHundredTimes) {
    for (int round = 0; round < 200; ++round) {
        const ChildResult result = exitAfter(GetParam());
        ASSERT_TRUE(result.ended) << "round " << round;
        ASSERT_EQ(0, result.status) << "round " << round;
        ASSERT_THAT(linesOfContext(result), theFourLines) << "round " << round;
    }
}

TEST(ExitOfAProcess, LogsNothingWithoutASocket) {
    const ChildResult result = exitAfter("nothing");

    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.errorLines, ElementsAre());
}

TEST(ExitOfAProcess, LogsOnlyFourLines) {
    EXPECT_EQ(4U, exitAfter("one-socket").errorLines.size());
}

TEST(ExitOfAProcess, LogsNoEndOfTheAuthenticator) {
    const ChildResult result = exitAfter("authenticator-running");

    EXPECT_THAT(result.errorLines, testing::Not(testing::Contains(testing::HasSubstr("Cannot authenticate"))));
}

TEST(ExitOfAProcess, EndsARunningListener) {
    const ChildResult result = exitAfter("static-listener");

    EXPECT_THAT(result.errorLines,
                testing::Contains(EndsWith("[error] [Socket Listener sub] Failed reading socket: Context terminated in "
                                           "poll() for socket [Socket static]. Aborting listener thread.")));
}

TEST(ExitOfAProcess, EndsWhileTheLoggerIsBlocked) {
    const auto begin = std::chrono::steady_clock::now();
    const ChildResult result = exitAfter("logger-blocked");

    EXPECT_TRUE(result.ended);
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(linesOfContext(result), theFourLines);
    EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - begin);
}

TEST(ExitOfAProcess, DropsLinesOfASlowLogger) {
    const ChildResult result = exitAfter("logger-slow");

    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.errorLines, testing::Contains("Security: Refused the untrusted key  of 10.0.0.1"));
    EXPECT_THAT(result.errorLines, testing::Not(testing::Contains(EndsWith("of 10.0.0.2"))));
}

TEST(ExitOfAProcess, EndsWithBlockedStandardError) {
    const auto begin = std::chrono::steady_clock::now();
    const ChildResult result = exitAfter("standard-error-blocked");

    EXPECT_TRUE(result.ended);
    EXPECT_EQ(0, result.status);
    EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - begin);
}

TEST(ExitOfAProcess, EndsInAForkedChild) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "AddressSanitizer's allocator may be locked by another thread at the fork";
#endif
    const ChildResult result = exitAfter("forked");

    EXPECT_EQ(0, result.status);
    EXPECT_EQ(8U, linesOfContext(result).size());
}

TEST(ExitOfAProcess, EndsWithALostSubscriber) {
    for (const std::string scenario : {"lost-subscriber", "lost-subscriber-lingering"}) {
        const ChildResult result = exitAfter(scenario);
        EXPECT_TRUE(result.ended) << scenario;
        EXPECT_EQ(0, result.status) << scenario;
    }
}

TEST_P(Exit, TouchesNoReleasedMemory) {
    const std::string valgrind = RK_VALGRIND;
    if (valgrind.empty()) {
        GTEST_SKIP() << "valgrind runs neither what a sanitizer has instrumented nor what is emulated";
    }
    // Valgrind runs one thread at a time, and is ten times slower on a busy machine.
    const ChildResult result =
        runChild({valgrind, "-q", "--fair-sched=yes", "--error-exitcode=9", RK_EXIT_CHILD, GetParam()},
                 std::chrono::seconds(100));
    EXPECT_EQ(0, result.status) << testing::PrintToString(result.errorLines);
}

} // namespace rk::tests
