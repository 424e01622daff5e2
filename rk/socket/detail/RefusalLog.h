#pragma once

#include <memory>
#include <string_view>
#include <thread>

namespace rk::socket::detail {

/// Logs which clients were refused, on a thread of its own, so that an application's logging calls never delay a
/// handshake.
///
/// Logs one warning per address and minute. It counts all others, and logs their number with the next refusal after a
/// minute. Memory is bounded: lines that wait for a slow logger, and those of many addresses, are counted as well, and so
/// are all lines while standard error is a pipe that is full.
class RefusalLog {
public:
    /// Starts the thread, with the signal mask of the caller.
    /// \throws std::system_error if the system has none
    RefusalLog();

    /// Ends the thread after the lines that wait. A thread that is not done after 100 ms stays behind in its logging call,
    /// and drops the other lines.
    ~RefusalLog();

    RefusalLog(const RefusalLog&) = delete;
    RefusalLog& operator=(const RefusalLog&) = delete;

    /// Logs that a client at `address` was refused, which has `key`. Does not wait for the logger. Drops the line if there
    /// is no memory for it.
    void add(std::string_view address, std::string_view key) noexcept;

    /// Logs last that the error of ZeroMQ has ended the authentication.
    void addEnd(int error) noexcept;

private:
    struct Shared;
    class Writer;

    template <class Change>
    void tell(const Change& change) noexcept;

    std::shared_ptr<Shared> shared; ///< with a thread that may stay behind
    std::thread thread;
};

} // namespace rk::socket::detail
