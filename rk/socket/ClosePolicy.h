#pragma once

/// What becomes of messages that are not yet sent when a socket is closed.
namespace rk::socket::ClosePolicy {

/// Chooses the linger time that `Socket::connect` sets. A subscribe socket always ends with `DropPending`; a value that
/// is none of these is taken for `WaitForDelivery`.
enum ClosePolicy : int {
    DropPending = 0,      ///< dropped at once
    LingerTwoSeconds = 1, ///< kept for up to two seconds; the process's exit waits at most that long for them
    WaitForDelivery = 2   ///< kept until delivered; the process's exit waits for them without limit
};

} // namespace rk::socket::ClosePolicy
