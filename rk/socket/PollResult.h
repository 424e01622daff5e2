#pragma once

/// What `Socket::poll` found.
namespace rk::socket::PollResult {

enum PollResult : int {
    Input = 0,   ///< a message can be read now
    Timeout = 1, ///< the time ran out with no message
    Failure = 2  ///< the poll failed, and the error text says why
};

} // namespace rk::socket::PollResult
