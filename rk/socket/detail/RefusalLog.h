#pragma once

#include <memory>
#include <string>
#include <thread>

namespace rk::socket::detail {

/// Logs which clients were refused, on a thread of its own, so that an application's logging calls never delay a
/// handshake.
///
/// Logs one warning per address and minute. It counts all others, and logs their number with the next refusal after a
/// minute. Memory is bounded: lines that wait for a slow logger, and those of many addresses, are counted as well.
class RefusalLog {
public:
    /// Starts the thread.
    /// \throws std::system_error if the system has none
    RefusalLog();

    /// Ends the thread after the lines that wait. A thread that is still in a logging call after 100 ms stays behind.
    ~RefusalLog();

    RefusalLog(const RefusalLog&) = delete;
    RefusalLog& operator=(const RefusalLog&) = delete;

    /// Hands over a line about a client at `address`. Does not wait for the logger. A line is dropped if there is no memory
    /// for it.
    void add(const std::string& address, const std::string& text) noexcept;

private:
    struct Shared;
    class Writer;

    template <class Change>
    void tell(const Change& change) noexcept;

    std::shared_ptr<Shared> shared; ///< with a thread that may stay behind
    std::thread thread;
};

} // namespace rk::socket::detail
