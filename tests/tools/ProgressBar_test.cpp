#include "display/ProgressBar.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(ProgressBar, ShowsTheShareThatIsDone) {
    EXPECT_EQ("[..............................]   0 %  none", ProgressBar::line(0.0, "none", 80));
    EXPECT_EQ("[###############...............]  50 %  half", ProgressBar::line(0.5, "half", 80));
    EXPECT_EQ("[##############################] 100 %  all", ProgressBar::line(7.0, "all", 80));
}

TEST(ProgressBar, IsTextAloneWhenTheShareIsUnknown) {
    EXPECT_EQ("some", ProgressBar::line(std::nullopt, "some", 80));
}

TEST(ProgressBar, IsNotWiderThanTheTerminal) {
    EXPECT_EQ("[#####", ProgressBar::line(1.0, "text", 6));
}

} // namespace rk::tools
