#pragma once

/// How long unsent messages are kept after their socket is closed.
namespace rk::socket::ClosePolicy {

/// Pass one of these to the constructor of `Socket`. `Socket::connect` applies it. A subscribe socket always uses
/// `DropPending`. Unknown values mean `WaitForDelivery`.
enum ClosePolicy : int {
    DropPending = 0,      ///< drops unsent messages at once
    LingerTwoSeconds = 1, ///< keeps unsent messages for up to two seconds. Process exit waits at most that long.
    WaitForDelivery = 2   ///< keeps unsent messages until delivered. Process exit waits without limit.
};

} // namespace rk::socket::ClosePolicy
