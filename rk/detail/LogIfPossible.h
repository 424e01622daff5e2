#pragma once

namespace rk::detail {

/// Logs the text that `makeText` returns, with one of the logging functions.
///
/// Drops the line when out of memory. Serves code that must not throw.
template <class Log, class MakeText>
void logIfPossible(Log& log, const MakeText& makeText) noexcept {
    try {
        log(makeText());
    } catch (...) {
        // Best effort.
    }
}

} // namespace rk::detail
