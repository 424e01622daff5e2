#include "display/Complaints.h"
#include "messages/Codec.h"

#include <gtest/gtest.h>

#include <string>

namespace rk::tools {

namespace {

/// Returns the JSON of a block as a plant.Sample, or the error.
std::string decoded(const std::string& block) {
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

TEST(ProtobufCodec, StopsBeforeWhatIsCutOff) {
    EXPECT_EQ(broken(0, "{}"), decoded(sensor.substr(0, 4)));
    EXPECT_EQ(broken(4, R"({"quantity":{"unit":"BAR"}})"), decoded(unit + sensor.substr(0, 4)));
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), decoded(sensor + "\xff"));
}

TEST(ProtobufCodec, LooksIntoAMessageThatIsCutOff) {
    EXPECT_EQ(broken(9, R"({"sensor":"abc","quantity":{"unit":"BAR"}})"),
              decoded(sensor + "\x1a\x0b\x10\x01\x09" + std::string(2, '\0')));
    EXPECT_EQ(broken(7, R"({"sensor":"abc","quantity":{}})"), decoded(sensor + "\x1a\x0b"));
}

TEST(ProtobufCodec, EscapesTextThatIsNotUtf8) {
    EXPECT_EQ("not UTF-8, which JSON has to be: plant.Sample.sensor; decoded, with these bytes escaped: "
              R"({"sensor":"\\xFF","quantity":{"unit":"BAR"}})",
              decoded("\x12\x01\xff" + unit));
}

TEST(ProtobufCodec, StopsBeforeAnEndOfNothing) {
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), decoded(sensor + "\x0c" + unit));
}

TEST(ProtobufCodec, SkipsFieldsThatTheTypeLacks) {
    const std::string fixed32 = "\x75\1\2\3\4";
    const std::string fixed64 = "\x71\1\2\3\4\5\6\7\x08";
    const std::string group = "\x7b\x08\1\x7b\x7c\x7c"; // with a group in it

    EXPECT_EQ(broken(10, R"({"sensor":"abc"})"), decoded(sensor + fixed32 + "\xff"));
    EXPECT_EQ(broken(14, R"({"sensor":"abc"})"), decoded(sensor + fixed64 + "\xff"));
    EXPECT_EQ(broken(11, R"({"sensor":"abc"})"), decoded(sensor + group + "\xff"));
    for (const std::string& field : {fixed32, fixed64}) {
        EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), decoded(sensor + field.substr(0, field.size() - 1)));
    }
    EXPECT_EQ(broken(10, R"({"sensor":"abc"})"), decoded(sensor + group.substr(0, group.size() - 1)));
}

TEST(ProtobufCodec, DropsMisencodedFields) {
    const std::string number = "\x0d\1\2\3\4";
    const std::string quantity = "\x1b\x10\1\x1c";

    EXPECT_EQ(R"({"sensor":"abc"})", decoded(number + sensor + quantity));
    EXPECT_EQ(R"({"sensor":"abc","quantity":{}})", decoded(sensor + "\x1a\5\x15\1\2\3\4"));
    EXPECT_EQ(broken(10, R"({"sensor":"abc"})"), decoded(number + sensor + "\xff"));
}

TEST(ProtobufCodec, JoinsScatteredFields) {
    EXPECT_EQ(R"({"number":"5","raw":[1,2,3,4]})", decoded("\x30\1\x08\5\x30\2\x32\2\3\4"));
    EXPECT_EQ(R"({"raw":[1,2]})", decoded("\x32\1\1\x32\1\2"));
    EXPECT_EQ(R"({"sensor":"abc","quantity":{"unit":"BAR"}})", decoded(unit + sensor + "\x1a" + std::string(1, '\0')));
    EXPECT_EQ(R"({"sensor":"abc"})", decoded("\x12\1x" + sensor));
}

TEST(ProtobufCodec, StopsBeforeAnExcessLength) {
    EXPECT_EQ(broken(5, R"({"sensor":"abc"})"), decoded(sensor + "\x7a\xff\xff\xff\xff\x0f" + unit));
}

} // namespace rk::tools
