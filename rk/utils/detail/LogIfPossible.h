#pragma once

namespace rk::utils::detail {

/// Logs what `makeText` makes, by one of the logging calls. A line for whose text there is no memory is dropped: this is
/// for places that nothing may be thrown from.
template <class Log, class MakeText>
void logIfPossible(Log& log, const MakeText& makeText) noexcept {
    try {
        log(makeText());
    } catch (...) {
        // A line that cannot be made has nobody to be reported to.
    }
}

} // namespace rk::utils::detail
