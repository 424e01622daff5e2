#pragma once

#include <memory>
#include <string_view>
#include <thread>

namespace rk::socket::detail {

/// Logs refused clients on a separate thread, so that an application's logger never delays a handshake.
///
/// Logs one warning per address and minute. Counts all other refusals, and logs their number with the next refusal
/// after a minute. Memory is bounded: while the logger is slow, while standard error is a full pipe, or if there are
/// many addresses, refusals are only counted.
class RefusalLog {
public:
    /// Starts the thread, with the signal mask of the caller.
    /// \throws std::system_error if the system cannot start one
    RefusalLog();

    /// Lets the thread log the pending lines, and joins it. Detaches it if it has not finished after 100 ms. It then
    /// drops the other lines.
    ~RefusalLog();

    RefusalLog(const RefusalLog&) = delete;
    RefusalLog& operator=(const RefusalLog&) = delete;

    /// Queues a line about a refused client at `address` with `key`. Does not wait for the logger. Drops the line if
    /// memory is exhausted.
    void add(std::string_view address, std::string_view key) noexcept;

    /// Queues the last line: ZeroMQ's error has ended the authenticator.
    void addEnd(int error) noexcept;

private:
    struct Shared;
    class Writer;

    template <class Change>
    void tell(const Change& change) noexcept;

    std::shared_ptr<Shared> shared; ///< outlives this object if the thread is detached
    std::thread thread;
};

} // namespace rk::socket::detail
