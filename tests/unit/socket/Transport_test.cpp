#include "support/Test.h"

#include <limits>
#include <type_traits>
#include <utility>

namespace rk::tests {

namespace {

static_assert(std::is_enum_v<Transport::Transport>);
static_assert(std::is_convertible_v<Transport::Transport, int>, "a plain enumeration");

} // namespace

TEST(Transport, ConvertsEveryTransport) {
    for (const auto& [transport, text] :
         {std::pair(Transport::Inproc, "inproc"), std::pair(Transport::Ipc, "ipc"), std::pair(Transport::Tcp, "tcp")}) {
        EXPECT_EQ(text, Transport::ToString(transport));
        EXPECT_EQ(transport, Transport::FromString(text));
    }
}

TEST(Transport, HasNoNameForOtherValues) {
    for (const int value : {0, 4, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ("undef", Transport::ToString(static_cast<Transport::Transport>(value)));
    }
}

TEST(Transport, IsUndefForOtherNames) {
    for (const std::string& text : {std::string(), std::string("undef"), std::string("TCP"), std::string("Tcp"),
                                    std::string(" tcp"), std::string("tcp "), std::string("tc"), std::string("tcp:"),
                                    std::string("tcp://"), std::string("ip"), std::string("ipcs"), std::string("udp"),
                                    std::string("3"), std::string("tcp\0", 4), std::string("\0tcp", 4)}) {
        EXPECT_EQ(Transport::Undef, Transport::FromString(text)) << text;
    }
}

} // namespace rk::tests
