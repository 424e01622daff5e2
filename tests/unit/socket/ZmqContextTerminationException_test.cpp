#include <rk/socket/ZmqContextTerminationException.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace rk::tests {

namespace {

using socket::ZmqContextTerminationException;

static_assert(std::is_convertible_v<ZmqContextTerminationException*, std::runtime_error*>);
static_assert(std::has_virtual_destructor_v<ZmqContextTerminationException>);
static_assert(sizeof(ZmqContextTerminationException) == sizeof(std::runtime_error), "no fields of its own");
static_assert(std::is_constructible_v<ZmqContextTerminationException, const std::string&>);
static_assert(!std::is_default_constructible_v<ZmqContextTerminationException>);
static_assert(std::is_nothrow_copy_constructible_v<ZmqContextTerminationException>);

} // namespace

TEST(ZmqContextTerminationException, HasItsMessage) {
    EXPECT_STREQ("x", ZmqContextTerminationException("x").what());
    EXPECT_STREQ("", ZmqContextTerminationException("").what());
}

TEST(ZmqContextTerminationException, IsCaught) {
    try {
        throw ZmqContextTerminationException("x");
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("x", failure.what());
        EXPECT_EQ(typeid(ZmqContextTerminationException), typeid(failure));
    }
}

} // namespace rk::tests
