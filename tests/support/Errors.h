#pragma once

#include <stdexcept>
#include <string>
#include <typeinfo>

namespace rk::tests {

/// Returns the message of the `Exception` that `action` throws, or an empty string if it throws nothing. Throws
/// `std::logic_error` if the exception has another type, even a derived one: a failed test, or a finding.
template <class Exception = std::runtime_error, class Action>
std::string textIfThrownBy(const Action& action) {
    try {
        action();
    } catch (const Exception& failure) {
        if (typeid(Exception) != typeid(failure)) {
            throw std::logic_error(std::string("thrown as another type: ") + failure.what());
        }
        return failure.what();
    }
    return {};
}

/// Does the same, but throws `std::logic_error` if `action` throws nothing.
template <class Exception = std::runtime_error, class Action>
std::string textThrownBy(const Action& action) {
    std::string text = textIfThrownBy<Exception>(action);
    return text.empty() ? throw std::logic_error("nothing was thrown") : text;
}

} // namespace rk::tests
