#include "messages/Codec.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

namespace rk::tools {

namespace {

std::unique_ptr<Codec> codecFor(Format format, bool hex) {
    CodecSettings settings;
    settings.format = format;
    settings.hex = hex;
    return makeRawCodec(settings);
}

std::string decoded(Format format, std::string_view block) {
    std::string text = "before ";
    codecFor(format, false)->decode(block, text);
    return text;
}

} // namespace

TEST(RawCodec, PassesBytesThrough) {
    const auto codec = codecFor(Format::Raw, false);

    EXPECT_EQ(std::string("a\0\n", 3), codec->encode(std::string("a\0\n", 3)));
    EXPECT_EQ(std::string("before a\0\n", 10), decoded(Format::Raw, std::string_view("a\0\n", 3)));
}

TEST(RawCodec, WritesTextAndHexInOneLine) {
    EXPECT_EQ("before a\\nb", decoded(Format::Text, "a\nb"));
    EXPECT_EQ("before 610a", decoded(Format::Hex, "a\n"));
}

TEST(RawCodec, WritesHexdumpsLikeXxd) {
    EXPECT_EQ("before 00000000: 3031 3233 3435 3637 3839 0aff 6162 6364  0123456789..abcd\n"
              "00000010: 6566 67                                  efg",
              decoded(Format::Hexdump, "0123456789\n\xFF"
                                       "abcdefg"));
    EXPECT_EQ("before ", decoded(Format::Hexdump, ""));
}

TEST(RawCodec, RejectsInvalidHexadecimals) {
    EXPECT_EQ("not pairs of hexadecimal digits",
              rk::tests::textThrownBy<CodecError>([] { codecFor(Format::Text, true)->encode("x"); }));
}

} // namespace rk::tools
