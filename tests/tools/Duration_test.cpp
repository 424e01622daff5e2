#include "Duration.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

namespace rk::tools {

using namespace std::chrono_literals;

TEST(Duration, IsANumberAndAUnit) {
    EXPECT_EQ(500ms, durationFromText("500ms"));
    EXPECT_EQ(20us, durationFromText("20us"));
    EXPECT_EQ(2s, durationFromText("2s"));
    EXPECT_EQ(90s, durationFromText("1.5min"));
    EXPECT_EQ(0s, durationFromText("0"));
}

TEST(Duration, IsInSecondsWithoutAUnit) {
    EXPECT_EQ(250ms, durationFromText("0.25"));
}

TEST(Duration, IsRefusedWithTheReason) {
    for (const std::string text : {"", "s", "-1s", "1h", "1 s", "nan", "inf", "1e10", "2ss"}) {
        EXPECT_EQ("'" + text + "' is no duration: a number and us, ms, s (also without a unit) or min",
                  rk::tests::textThrownBy([&text] { durationFromText(text); }));
    }
}

} // namespace rk::tools
