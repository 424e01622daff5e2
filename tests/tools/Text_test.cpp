#include "messages/Text.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(Text, ReadsHexBackAsWritten) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }

    EXPECT_EQ(512U, toHex(bytes).size());
    EXPECT_EQ(bytes, fromHex(toHex(bytes)));
}

TEST(Text, ReadsHexWithBlanksAndCapitals) {
    EXPECT_EQ("\xAB\x01", fromHex(" AB\t01 \n"));
    EXPECT_EQ("", fromHex(""));
}

TEST(Text, RejectsHexWithoutPairsOfDigits) {
    for (const char* const text : {"a", "0g", "a b", "0x10", "abc"}) {
        EXPECT_EQ(std::nullopt, fromHex(text)) << text;
    }
}

TEST(Text, KeepsPrintableCharactersAndTabs) {
    EXPECT_EQ("a\tb \"ü€\U0001F600\"", printable("a\tb \"ü€\U0001F600\""));
}

TEST(Text, EscapesControlsAndInvalidUtf8) {
    EXPECT_EQ("\\n\\r\\x00\\x1B\\x7F", printable(std::string_view("\n\r\0\x1B\x7F", 5)));
    EXPECT_EQ("\\xC0\\x80", printable("\xC0\x80"));                   // longer than needed
    EXPECT_EQ("\\xED\\xA0\\x80", printable("\xED\xA0\x80"));          // half of a pair
    EXPECT_EQ("\\xF4\\x90\\x80\\x80", printable("\xF4\x90\x80\x80")); // behind the last character
    EXPECT_EQ("\\xE2\\x82", printable("\xE2\x82"));                   // cut off
    EXPECT_EQ("\\xC2\\x9B", printable("\xC2\x9B"));                   // begins a terminal's command
}

TEST(Text, EscapesBackslashes) {
    EXPECT_EQ("\\\\n", printable("\\n"));
}

TEST(Text, EscapesInvisibleCharacters) {
    EXPECT_EQ("\\xE2\\x80\\xAE", printable("\u202E")); // right to left
    EXPECT_EQ("\\xE2\\x81\\xA6", printable("\u2066"));
    EXPECT_EQ("\\xE2\\x80\\x8B", printable("\u200B"));
    EXPECT_EQ("\\xD8\\x9C\\xC2\\xAD", printable("\u061C\u00AD"));
    EXPECT_EQ("\\xEF\\xBB\\xBF", printable("\uFEFF"));
    EXPECT_EQ("\\xF3\\xA0\\x81\\x81", printable("\U000E0041"));
}

TEST(Text, DistinguishesUtf8FromOtherBytes) {
    EXPECT_TRUE(isUtf8("a\u202E€"));
    EXPECT_FALSE(isUtf8("a\xFF"));
}

} // namespace rk::tools
