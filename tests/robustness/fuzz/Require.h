#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace rk::tests {

/// Aborts the process, which libFuzzer and CTest report as a failure.
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

} // namespace rk::tests
