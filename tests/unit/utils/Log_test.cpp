#include "support/Child.h"
#include "support/ThreadFaults.h"

#include <rk/utils/Log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

namespace rk::tests {

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;

std::vector<std::string> linesOf(const std::string& scenario) {
    const ChildResult result = runChild({RK_LOG_CHILD, scenario});
    EXPECT_EQ(0, result.status) << scenario;
    return result.errorLines;
}

} // namespace

TEST(Log, WritesTimeLevelAndMessage) {
    const std::string stamp = "\\[....-..-.. ..:..:..\\....\\] \\[rk\\] ";

    EXPECT_THAT(linesOf("each-level"), ElementsAre(MatchesRegex(stamp + "\\[debug\\] a debug line with \\{\\} and %d"),
                                                   MatchesRegex(stamp + "\\[warning\\] a warning"),
                                                   MatchesRegex(stamp + "\\[error\\] an error")));
}

TEST(Log, FollowsTheRegisteredLogger) {
    EXPECT_THAT(linesOf("application"),
                ElementsAre(EndsWith("[debug] before"), "app debug: a debug line with {} and %d",
                            "app warning: a warning", "app error: an error", EndsWith("[debug] after")));
}

TEST(Log, KeepsErrno) {
    EXPECT_EQ(3U, linesOf("errno").size());
}

TEST(Log, ThrowsNothingWhenTheLoggerDoes) {
    EXPECT_EQ("survived", linesOf("throwing-sink").back());
}

TEST(Log, DropsALineWhenALockFails) {
    testing::internal::CaptureStderr();
    {
        const MutexFault fault(EAGAIN);
        errno = ENOMEM;
        utils::logDebug("dropped");
        EXPECT_EQ(ENOMEM, errno);
    }
    utils::logDebug("written");

    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_THAT(lines, EndsWith("[debug] written\n"));
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), '\n')) << lines;
}

TEST(Log, WorksInLateStaticDestructors) {
    EXPECT_THAT(linesOf("after-everything"),
                ElementsAre(EndsWith("[debug] first word"), EndsWith("[debug] last word")));
}

TEST(Log, EndsTheProcessWhenItsLastLockFails) {
    EXPECT_THAT(linesOf("last-lock-fails"), ElementsAre(EndsWith("[debug] first word")));
}

TEST(Log, KeepsTheLoggerAtExit) {
    EXPECT_THAT(linesOf("application-after-everything"), ElementsAre("app debug: first word", "app debug: last word"));
}

TEST(Log, FindsTheLoggerAtExit) {
    EXPECT_EQ("app debug: [SocketContext]: Destroying 0MQ context Done", linesOf("first-when-the-context-ends").back());
}

} // namespace rk::tests
