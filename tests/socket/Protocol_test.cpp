#include <rk/socket/Protocol.h>

#include <gtest/gtest.h>
#include <zmq.h>

#include <limits>
#include <string>
#include <type_traits>

namespace rk::tests {

namespace {

namespace Protocol = socket::Protocol;

static_assert(std::is_enum_v<Protocol::Protocol>);
static_assert(std::is_convertible_v<Protocol::Protocol, int>, "a plain enumeration");
static_assert(sizeof(Protocol::Protocol) == 4);
static_assert(Protocol::Undef == 0);
static_assert(Protocol::Pub == 1);
static_assert(Protocol::Sub == 2);
static_assert(Protocol::Rep == 3);
static_assert(Protocol::Req == 4);
static_assert(std::is_same_v<decltype(&Protocol::ToString), std::string (*)(Protocol::Protocol)>);
static_assert(std::is_same_v<decltype(&Protocol::FromString), Protocol::Protocol (*)(const std::string&)>);
static_assert(std::is_same_v<decltype(&Protocol::ToNativeProtocol), int (*)(Protocol::Protocol)>);

class ValueThatIsNoPattern : public testing::TestWithParam<int> {
protected:
    const Protocol::Protocol value = static_cast<Protocol::Protocol>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Protocol, ValueThatIsNoPattern,
                         testing::Values(0, 5, 7, -1, std::numeric_limits<int>::min(),
                                         std::numeric_limits<int>::max()));

class TextThatIsNoPattern : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Protocol, TextThatIsNoPattern,
                         testing::Values("", "undef", "PUB", "Pub", " pub", "pub ", "pu", "publ", "pubsub", "1",
                                         std::string("pub\0", 4), std::string("\0pub", 4), "reply", "request"));

} // namespace

TEST(Protocol, HasATextForEveryPattern) {
    EXPECT_EQ("pub", Protocol::ToString(Protocol::Pub));
    EXPECT_EQ("sub", Protocol::ToString(Protocol::Sub));
    EXPECT_EQ("rep", Protocol::ToString(Protocol::Rep));
    EXPECT_EQ("req", Protocol::ToString(Protocol::Req));
}

TEST(Protocol, IsReadFromItsText) {
    EXPECT_EQ(Protocol::Pub, Protocol::FromString("pub"));
    EXPECT_EQ(Protocol::Sub, Protocol::FromString("sub"));
    EXPECT_EQ(Protocol::Rep, Protocol::FromString("rep"));
    EXPECT_EQ(Protocol::Req, Protocol::FromString("req"));
}

TEST(Protocol, HasTheNumbersOf0Mq) {
    EXPECT_EQ(1, Protocol::ToNativeProtocol(Protocol::Pub));
    EXPECT_EQ(2, Protocol::ToNativeProtocol(Protocol::Sub));
    EXPECT_EQ(4, Protocol::ToNativeProtocol(Protocol::Rep));
    EXPECT_EQ(3, Protocol::ToNativeProtocol(Protocol::Req));

    EXPECT_EQ(ZMQ_PUB, Protocol::ToNativeProtocol(Protocol::Pub));
    EXPECT_EQ(ZMQ_SUB, Protocol::ToNativeProtocol(Protocol::Sub));
    EXPECT_EQ(ZMQ_REP, Protocol::ToNativeProtocol(Protocol::Rep));
    EXPECT_EQ(ZMQ_REQ, Protocol::ToNativeProtocol(Protocol::Req));
}

TEST_P(ValueThatIsNoPattern, PrintsAsUndef) {
    EXPECT_EQ("undef", Protocol::ToString(value));
}

TEST_P(ValueThatIsNoPattern, IsReadBackAsUndef) {
    EXPECT_EQ(Protocol::Undef, Protocol::FromString(Protocol::ToString(value)));
}

TEST_P(ValueThatIsNoPattern, HasNoNumberOf0Mq) {
    EXPECT_EQ(-1, Protocol::ToNativeProtocol(value));
}

TEST_P(TextThatIsNoPattern, GivesUndef) {
    EXPECT_EQ(Protocol::Undef, Protocol::FromString(GetParam()));
}

} // namespace rk::tests
