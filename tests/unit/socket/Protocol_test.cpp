#include "support/Test.h"

#include <zmq.h>

#include <limits>
#include <type_traits>

namespace rk::tests {

namespace {

static_assert(std::is_enum_v<Protocol::Protocol>);
static_assert(std::is_convertible_v<Protocol::Protocol, int>, "a plain enumeration");

/// A pattern, its name and ZeroMQ's number.
struct Pattern {
    Protocol::Protocol pattern;
    const char* text;
    int native;
};

constexpr Pattern patterns[] = {{Protocol::Pub, "pub", ZMQ_PUB},
                                {Protocol::Sub, "sub", ZMQ_SUB},
                                {Protocol::Rep, "rep", ZMQ_REP},
                                {Protocol::Req, "req", ZMQ_REQ}};

} // namespace

TEST(Protocol, ConvertsEveryPattern) {
    for (const auto& [pattern, text, native] : patterns) {
        EXPECT_EQ(text, Protocol::ToString(pattern));
        EXPECT_EQ(pattern, Protocol::FromString(text));
        EXPECT_EQ(native, Protocol::ToNativeProtocol(pattern));
    }
}

TEST(Protocol, HasNoNameOrNumberForOtherValues) {
    for (const int value : {0, 5, 7, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        const auto none = static_cast<Protocol::Protocol>(value);
        EXPECT_EQ("undef", Protocol::ToString(none));
        EXPECT_EQ(-1, Protocol::ToNativeProtocol(none));
    }
}

TEST(Protocol, IsUndefForOtherNames) {
    for (const std::string& text :
         {std::string(), std::string("undef"), std::string("PUB"), std::string("Pub"), std::string(" pub"),
          std::string("pub "), std::string("pu"), std::string("publ"), std::string("pubsub"), std::string("1"),
          std::string("pub\0", 4), std::string("\0pub", 4), std::string("reply"), std::string("request")}) {
        EXPECT_EQ(Protocol::Undef, Protocol::FromString(text)) << text;
    }
}

} // namespace rk::tests
