#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/SocketEndpoint.h>
#include <rk/utils/IMessageFormatter.h>
#include <rk/utils/MessageFormatter.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace rk::tests {

namespace {

using rk::utils::IMessageFormatter;
using rk::utils::MessageFormatter;

static_assert(std::is_abstract_v<IMessageFormatter>);
static_assert(!std::has_virtual_destructor_v<IMessageFormatter>);

static_assert(std::is_convertible_v<MessageFormatter*, IMessageFormatter*>);
static_assert(std::is_constructible_v<MessageFormatter, const std::string&>);
static_assert(!std::is_default_constructible_v<MessageFormatter>);
static_assert(!std::has_virtual_destructor_v<MessageFormatter>);

// Only the endpoint overrides the header.
using HeaderOfTheName = std::string (MessageFormatter::*)() const;
static_assert(std::is_same_v<decltype(&MessageFormatter::messageHeader), HeaderOfTheName>);
static_assert(std::is_same_v<decltype(&socket::Socket::messageHeader), HeaderOfTheName>);
static_assert(std::is_same_v<decltype(&socket::SocketContext::messageHeader), HeaderOfTheName>);
static_assert(
    std::is_same_v<decltype(&socket::SocketEndpoint::messageHeader), std::string (socket::SocketEndpoint::*)() const>);

class CountingFormatter : public IMessageFormatter {
public:
    std::string messageHeader() const override { return "call " + std::to_string(++calls); }

private:
    mutable int calls = 0;
};

class Renamed : public MessageFormatter {
public:
    Renamed() : MessageFormatter("stored") {}
    std::string messageHeader() const override { return "overridden"; }
};

} // namespace

TEST(IMessageFormatter, PrependsTheHeader) {
    const CountingFormatter formatter;

    EXPECT_EQ("call 1: text", formatter.formatMessage("text"));
    EXPECT_EQ("call 2: ", formatter.formatMessage(""));
}

TEST(MessageFormatter, BuildsItsHeaderFromTheName) {
    EXPECT_EQ("[name]", MessageFormatter("name").messageHeader());
    EXPECT_EQ("[]", MessageFormatter("").messageHeader());
}

TEST(MessageFormatter, KeepsNamesUnchanged) {
    const std::string name("a\0%s\n", 5);

    EXPECT_EQ("[" + name + "]: " + name, MessageFormatter(name).formatMessage(name));
}

TEST(MessageFormatter, UsesAnOverriddenHeader) {
    const Renamed formatter;
    const IMessageFormatter& interface = formatter;

    EXPECT_EQ("overridden: text", interface.formatMessage("text"));
}

} // namespace rk::tests
