#include <rk/socket/Transport.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

namespace rk::tests {

namespace {

namespace Transport = socket::Transport;

static_assert(std::is_enum_v<Transport::Transport>);
static_assert(std::is_convertible_v<Transport::Transport, int>, "a plain enumeration");
static_assert(sizeof(Transport::Transport) == 4);
static_assert(Transport::Undef == 0);
static_assert(Transport::Inproc == 1);
static_assert(Transport::Ipc == 2);
static_assert(Transport::Tcp == 3);
static_assert(std::is_same_v<decltype(&Transport::ToString), std::string (*)(Transport::Transport)>);
static_assert(std::is_same_v<decltype(&Transport::FromString), Transport::Transport (*)(const std::string&)>);

class ValueThatIsNoTransport : public testing::TestWithParam<int> {
protected:
    const Transport::Transport value = static_cast<Transport::Transport>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Transport, ValueThatIsNoTransport,
                         testing::Values(0, 4, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));

class TextThatIsNoTransport : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Transport, TextThatIsNoTransport,
                         testing::Values("", "undef", "TCP", "Tcp", " tcp", "tcp ", "tc", "tcp:", "tcp://", "ip",
                                         "ipcs", "udp", "3", std::string("tcp\0", 4), std::string("\0tcp", 4)));

} // namespace

TEST(Transport, HasATextForEveryTransport) {
    EXPECT_EQ("inproc", Transport::ToString(Transport::Inproc));
    EXPECT_EQ("ipc", Transport::ToString(Transport::Ipc));
    EXPECT_EQ("tcp", Transport::ToString(Transport::Tcp));
}

TEST(Transport, IsReadFromItsText) {
    EXPECT_EQ(Transport::Inproc, Transport::FromString("inproc"));
    EXPECT_EQ(Transport::Ipc, Transport::FromString("ipc"));
    EXPECT_EQ(Transport::Tcp, Transport::FromString("tcp"));
}

TEST_P(ValueThatIsNoTransport, PrintsAsUndef) {
    EXPECT_EQ("undef", Transport::ToString(value));
}

TEST_P(ValueThatIsNoTransport, IsReadBackAsUndef) {
    EXPECT_EQ(Transport::Undef, Transport::FromString(Transport::ToString(value)));
}

TEST_P(TextThatIsNoTransport, GivesUndef) {
    EXPECT_EQ(Transport::Undef, Transport::FromString(GetParam()));
}

} // namespace rk::tests
