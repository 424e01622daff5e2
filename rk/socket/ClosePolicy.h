#pragma once

/// How long unsent messages are kept after their socket is closed.
namespace rk::socket::ClosePolicy {

/// Pass one of these to the constructor of `Socket`. `Socket::connect` applies it. A subscribe socket always uses
/// `DropPending`. Unknown values mean `WaitForDelivery`.
enum ClosePolicy : int {
    DropPending = 0,      ///< drops them at once
    LingerTwoSeconds = 1, ///< keeps them for up to two seconds. Process exit waits at most that long.
    WaitForDelivery = 2   ///< keeps them until delivered. Process exit waits without limit.
};

} // namespace rk::socket::ClosePolicy
