#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace rk::tests {

/// Ends the process by a signal, which is a finding of libFuzzer and a failed test.
[[noreturn]] inline void fail(const std::string& finding) {
    std::fprintf(stderr, "Finding: %s\n", finding.c_str());
    std::abort();
}

inline void require(bool holds, const char* what) {
    if (!holds) {
        fail(what);
    }
}

inline void requireEqual(const std::string& expected, const std::string& actual, const char* what) {
    if (expected != actual) {
        fail(std::string(what) + "\n  expected: " + expected + "\n  actual:   " + actual);
    }
}

/// The text of what `action` throws, which has to be an `Exception` and of no type derived from it; empty if nothing.
template <class Exception, class Action>
std::string textThrownBy(const Action& action) {
    try {
        action();
    } catch (const Exception& failure) {
        require(typeid(failure) == typeid(Exception), "the exception is of another type");
        return failure.what();
    }
    return {};
}

} // namespace rk::tests
