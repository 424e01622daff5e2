#pragma once

#include <stdexcept>
#include <string>
#include <typeinfo>

namespace rk::tests {

/// The text of the `Exception` that `action` throws, or an empty one when it throws nothing. An exception of another type,
/// also of a derived one, goes on as a `std::logic_error`: a failed test, or a finding.
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

/// As above, and a `std::logic_error` when `action` throws nothing.
template <class Exception = std::runtime_error, class Action>
std::string textThrownBy(const Action& action) {
    std::string text = textIfThrownBy<Exception>(action);
    return text.empty() ? throw std::logic_error("nothing was thrown") : text;
}

} // namespace rk::tests
