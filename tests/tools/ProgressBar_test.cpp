#include "display/ProgressBar.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(ProgressBar, ShowsTheShareThatIsDone) {
    EXPECT_EQ("[..............................]   0 %  none", ProgressBar::line(0.0, "none"));
    EXPECT_EQ("[###############...............]  50 %  half", ProgressBar::line(0.5, "half"));
    EXPECT_EQ("[##############################] 100 %  all", ProgressBar::line(7.0, "all"));
}

TEST(ProgressBar, IsTextAloneWhenTheShareIsUnknown) {
    EXPECT_EQ("some", ProgressBar::line(std::nullopt, "some"));
}

} // namespace rk::tools
