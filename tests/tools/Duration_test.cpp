#include "Duration.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(Duration, IsANumberAndAUnit) {
    EXPECT_EQ(std::chrono::milliseconds(500), durationFromText("500ms"));
    EXPECT_EQ(std::chrono::microseconds(20), durationFromText("20us"));
    EXPECT_EQ(std::chrono::seconds(2), durationFromText("2s"));
    EXPECT_EQ(std::chrono::seconds(90), durationFromText("1.5min"));
    EXPECT_EQ(std::chrono::seconds(0), durationFromText("0"));
}

TEST(Duration, IsInSecondsWithoutAUnit) {
    EXPECT_EQ(std::chrono::milliseconds(250), durationFromText("0.25"));
}

TEST(Duration, IsRefusedWithTheReason) {
    for (const std::string text : {"", "s", "-1s", "1h", "1 s", "nan", "inf", "1e10", "2ss"}) {
        EXPECT_EQ("'" + text + "' is no duration: a number and us, ms, s (also without a unit) or min",
                  rk::tests::textThrownBy([&text] { durationFromText(text); }));
    }
}

} // namespace rk::tools
