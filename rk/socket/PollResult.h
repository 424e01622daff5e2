#pragma once

/// The result of `Socket::poll`.
namespace rk::socket::PollResult {

/// What `Socket::poll` returns.
enum PollResult : int {
    Input = 0,   ///< a message can be read now
    Timeout = 1, ///< the time ran out with no message
    Failure = 2  ///< the poll failed, and the error text says why
};

} // namespace rk::socket::PollResult
