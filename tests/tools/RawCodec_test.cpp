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

} // namespace

TEST(RawCodec, PassesBytesThrough) {
    const auto codec = codecFor(Format::Raw, false);

    EXPECT_EQ(std::string("a\0\n", 3), codec->encode(std::string("a\0\n", 3)));
    EXPECT_EQ(std::string("a\0\n", 3), codec->decode(std::string_view("a\0\n", 3)));
}

TEST(RawCodec, WritesALineForEachBlock) {
    EXPECT_EQ("a\\nb\n", codecFor(Format::Text, false)->decode("a\nb"));
    EXPECT_EQ("610a\n", codecFor(Format::Hex, false)->decode("a\n"));
}

TEST(RawCodec, RefusesWhatIsNoHexNumber) {
    EXPECT_EQ("not pairs of hexadecimal digits",
              rk::tests::textThrownBy<CodecError>([] { codecFor(Format::Text, true)->encode("x"); }));
}

} // namespace rk::tools
