#include "display/LiveLines.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(LiveLines, ReplaceThePreviousLines) {
    LiveLines lines;

    EXPECT_EQ("\r\033[Kone\n\r\033[Ktwo\n", lines.draw({"one", "two"}, 3));
    EXPECT_EQ("\033[2A\r\033[Kfou\n\033[J", lines.draw({"four"}, 3));
    EXPECT_EQ("\033[1A\r\033[Ka\n", lines.draw({"a"}, 3));
}

TEST(LiveLines, CutBetweenCharacters) {
    EXPECT_EQ("\r\033[Kü▁\n", LiveLines().draw({"ü▁▂"}, 2));
}

TEST(LiveLines, ClearTheScreenWhenItShrinks) {
    LiveLines lines;
    lines.draw({"one", "two"}, 3);

    EXPECT_EQ("\033[H\033[J\r\033[Kon\n\r\033[Ktw\n", lines.draw({"one", "two"}, 2));
    EXPECT_EQ("\033[2A\r\033[Kone\n\r\033[Ktwo\n", lines.draw({"one", "two"}, 3));
}

TEST(LiveLines, AreRemoved) {
    LiveLines lines;
    EXPECT_EQ("", lines.clear());

    lines.draw({"one", "two"}, 3);
    EXPECT_EQ("\033[2A\r\033[J", lines.clear());
    EXPECT_EQ("\r\033[Kone\n", lines.draw({"one"}, 3));
}

} // namespace rk::tools
