#include "RawCodec.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(RawCodec, PassesBytesThrough) {
    RawCodec codec(Format::Raw, false);

    EXPECT_EQ(std::string("a\0\n", 3), codec.encode(std::string("a\0\n", 3)));
    EXPECT_EQ(std::string("a\0\n", 3), codec.decode(std::string_view("a\0\n", 3)));
}

TEST(RawCodec, WritesALineForEachBlock) {
    EXPECT_EQ("a\\nb\n", RawCodec(Format::Text, false).decode("a\nb"));
    EXPECT_EQ("610a\n", RawCodec(Format::Hex, false).decode("a\n"));
}

TEST(RawCodec, RefusesWhatIsNoHexadecimalNumber) {
    EXPECT_EQ("not pairs of hexadecimal digits",
              rk::tests::textThrownBy<CodecError>([] { RawCodec(Format::Text, true).encode("x"); }));
}

} // namespace rk::tools
