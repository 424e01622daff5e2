#pragma once

/// The result of `Socket::poll`.
namespace rk::socket::PollResult {

/// Tells why `Socket::poll` has returned.
enum PollResult : int {
    Input = 0,   ///< a message can be read now
    Timeout = 1, ///< the timeout expired without a message
    Failure = 2  ///< the poll failed, and the `error` argument gives the reason
};

} // namespace rk::socket::PollResult
