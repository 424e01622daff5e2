#include "Interpose.h"

#include <rk/utils/Log.h>

using rk::tests::next;

namespace rk::utils {

void logDebug(const std::string& text) {
    tests::log(
        "debug", text,
        next<decltype(logDebug)>("_ZN2rk5utils8logDebugERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"));
}

void logWarning(const std::string& text) {
    tests::log(
        "warning", text,
        next<decltype(logWarning)>("_ZN2rk5utils10logWarningERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"));
}

void logError(const std::string& text) {
    tests::log(
        "error", text,
        next<decltype(logError)>("_ZN2rk5utils8logErrorERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"));
}

} // namespace rk::utils
