#include "display/Complaints.h"
#include "messages/Codec.h"

#include <gtest/gtest.h>

#include <string>

namespace rk::tools {

namespace {

/// What the codec complains of when it decodes a block as a plant.Sample.
std::string complaintAbout(const std::string& block) {
    const Complaints complaints;
    CodecSettings settings;
    settings.protoFiles = {RK_PLANT_SCHEMA};
    const auto codec = makeProtobufCodec(settings, std::nullopt, "Sample", complaints);
    try {
        std::string text;
        codec->decode(block, text);
        return text;
    } catch (const CodecError& error) {
        return error.what();
    }
}

std::string broken(int place, const std::string& json) {
    return "not a plant.Sample from byte " + std::to_string(place) + " on; decoded so far: " + json;
}

const std::string sensor = "\x12\x03"
                           "abc"; // 5 bytes
const std::string unit = "\x1a\x02\x10\x01";

} // namespace

TEST(PartialDecoder, StopsBeforeWhatIsCutOff) {
    EXPECT_EQ(broken(0, "{}"), complaintAbout(sensor.substr(0, 4)));
    EXPECT_EQ(broken(4, R"({"quantity":{"unit":"BAR"}})"), complaintAbout(unit + sensor.substr(0, 4)));
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), complaintAbout(sensor + "\xff"));
}

TEST(PartialDecoder, LooksIntoAMessageThatIsCutOff) {
    EXPECT_EQ(broken(9, R"({"sensor":"abc","quantity":{"unit":"BAR"}})"),
              complaintAbout(sensor + "\x1a\x0b\x10\x01\x09" + std::string(2, '\0')));
    EXPECT_EQ(broken(7, R"({"sensor":"abc","quantity":{}})"), complaintAbout(sensor + "\x1a\x0b"));
}

TEST(PartialDecoder, StopsBeforeTextThatIsNoUtf8) {
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), complaintAbout(sensor + "\x12\x01\xff" + unit));
}

TEST(PartialDecoder, StopsBeforeAnEndOfNothing) {
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), complaintAbout(sensor + "\x0c" + unit));
}

TEST(PartialDecoder, SkipsFieldsThatTheTypeLacks) {
    const std::string fixed32 = "\x75\1\2\3\4";
    const std::string fixed64 = "\x71\1\2\3\4\5\6\7\x08";
    const std::string group = "\x7b\x08\1\x7b\x7c\x7c"; // with a group in it

    EXPECT_EQ(broken(10, R"({"sensor":"abc"})"), complaintAbout(sensor + fixed32 + "\xff"));
    EXPECT_EQ(broken(14, R"({"sensor":"abc"})"), complaintAbout(sensor + fixed64 + "\xff"));
    EXPECT_EQ(broken(11, R"({"sensor":"abc"})"), complaintAbout(sensor + group + "\xff"));
    for (const std::string& field : {fixed32, fixed64, group}) {
        EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), complaintAbout(sensor + field.substr(0, field.size() - 1)));
    }
}

TEST(PartialDecoder, StopsBeforeAnExcessLength) {
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), complaintAbout(sensor + "\x7a\xff\xff\xff\xff\x0f" + unit));
}

} // namespace rk::tools
