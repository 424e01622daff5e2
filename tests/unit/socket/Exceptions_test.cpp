#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace rk::tests {

namespace {

template <class Exception>
class Exceptions : public testing::Test {
    static_assert(std::is_convertible_v<Exception*, std::runtime_error*>);
    static_assert(std::has_virtual_destructor_v<Exception>);
    static_assert(sizeof(Exception) == sizeof(std::runtime_error), "no fields of its own");
    static_assert(std::is_constructible_v<Exception, const std::string&>);
    static_assert(!std::is_default_constructible_v<Exception>);
    static_assert(std::is_nothrow_copy_constructible_v<Exception>);
};

/// Names the tests, because clang 19 warns if the macro's last argument is omitted.
struct ExceptionName {
    template <class Exception>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Exception, socket::TimeoutException> ? "Timeout" : "Termination";
    }
};

using EveryException = testing::Types<socket::ZmqContextTerminationException, socket::TimeoutException>;
TYPED_TEST_SUITE(Exceptions, EveryException, ExceptionName);

} // namespace

TYPED_TEST(Exceptions, HaveTheirMessage) {
    EXPECT_STREQ("x", TypeParam("x").what());
    EXPECT_STREQ("", TypeParam("").what());
}

TYPED_TEST(Exceptions, AreCaught) {
    try {
        throw TypeParam("x");
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("x", failure.what());
        EXPECT_EQ(typeid(TypeParam), typeid(failure));
    }
}

} // namespace rk::tests
