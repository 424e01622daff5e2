#include "display/LiveLines.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(LiveLines, AreDrawnOverThoseBefore) {
    LiveLines lines;

    EXPECT_EQ("\r\033[Kone\n\r\033[Ktwo\n", lines.draw({"one", "two"}, 3));
    EXPECT_EQ("\033[2A\r\033[Kfou\n", lines.draw({"four"}, 3));
    EXPECT_EQ("\033[1A\r\033[Ka\n", lines.draw({"a"}, 3));
}

} // namespace rk::tools
