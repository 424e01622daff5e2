#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace rk::tests {

namespace {

template <class Exception>
void expectCaughtWithItsMessage() {
    static_assert(std::has_virtual_destructor_v<Exception>);
    static_assert(sizeof(Exception) == sizeof(std::runtime_error), "no fields of its own");
    static_assert(std::is_constructible_v<Exception, const std::string&>);
    static_assert(!std::is_default_constructible_v<Exception>);
    static_assert(std::is_nothrow_copy_constructible_v<Exception>);
    try {
        throw Exception("x");
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("x", failure.what());
        EXPECT_EQ(typeid(Exception), typeid(failure));
    }
}

} // namespace

TEST(Exceptions, AreCaughtWithTheirMessage) {
    expectCaughtWithItsMessage<socket::ZmqContextTerminationException>();
    expectCaughtWithItsMessage<socket::TimeoutException>();
}

} // namespace rk::tests
