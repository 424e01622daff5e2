#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace rk::tests {

/// What `action` threw as an `Exception`, by its text; a failed test and an empty text when it threw nothing or another
/// type.
template <class Exception = std::runtime_error, class Action>
std::string textThrownBy(const Action& action) {
    try {
        action();
    } catch (const Exception& failure) {
        EXPECT_EQ(typeid(Exception), typeid(failure));
        return failure.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

} // namespace rk::tests
