#pragma once

#include <chrono>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace rk::socket::detail {

/// Lets this process bind an address again that it has just released.
///
/// ZeroMQ closes a socket in the background. For some milliseconds after `zmq_close` the addresses of the socket are
/// still in use, and a bind of one of them fails. Every socket of the library therefore binds and closes through the
/// book of the process. The book knows which native socket holds which address, and when an address was released, so
/// that a bind waits for an address that ZeroMQ is about to free, and fails at once when another process holds it.
///
/// Each address that was ever bound is one entry, either in `held` or in `released`. The index leads to the latest entry
/// of an address: on ipc a second socket can take over an address that the first still holds. Entries leave the book
/// seconds after their release, a few with each call, so that it stays small and no call has much to clean up.
///
/// Any thread may call the operations. The mutex is never held across a call to ZeroMQ.
class AddressBook {
public:
    /// Returns the book of the process. It is never destroyed, because static destructors close sockets.
    static AddressBook& ofProcess();

    /// Binds `socket` to `address`. While the address is one that this process has released and no socket of it has
    /// bound since, retries with short pauses: until two seconds after the release, and for at least 50 ms in case the
    /// process was stopped meanwhile. Returns 0, or the error number of the last attempt.
    /// \throws std::system_error if a lock fails
    int bind(void* socket, const std::string& address);

    /// Calls `zmq_close`, and releases every address that `socket` has bound.
    void close(void* socket) noexcept;

private:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        std::string address;
        void* holder; ///< null once the address is released
        Clock::time_point releasedAt;
    };
    using Entries = std::list<Entry>;
    using Index = std::map<std::string_view, Entries::iterator>;
    using Holders = std::multimap<void*, Entries::iterator>;

    bool isBeingReleased(const std::string& address, Clock::time_point firstAttempt);
    void enter(Entries& entry, Index::node_type indexed, Holders::node_type holder);
    void releaseAddressesOf(void* socket);
    void forgetExpired();

    std::mutex mutex;
    Entries held;
    Entries released; ///< in the order of their release
    Index index;
    Holders holders;
};

} // namespace rk::socket::detail
