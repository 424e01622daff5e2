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
/// ZeroMQ closes a socket in the background. For some milliseconds after `zmq_close` its addresses are still in use,
/// and a bind fails. Every socket of the library therefore binds and closes through the book of the process. The book
/// records which native socket holds which address, and when an address was released. A bind waits for an address that
/// this process has just released, and fails at once for any other that is in use.
///
/// Invariants: each address that was bound is one entry, either in `held` or in `released`. The index refers to the
/// latest entry of an address, because on ipc a second socket can take over an address that the first still holds. Each
/// call removes a few entries that were released seconds ago, so the book stays small and no call takes long.
///
/// Any thread may call the operations. The mutex is never held during a call to ZeroMQ.
class AddressBook {
public:
    /// Returns the book of the process. It is never destroyed, because static destructors close sockets.
    static AddressBook& ofProcess();

    /// Binds `socket` to `address`. Returns 0 or the error number of the last attempt.
    ///
    /// If this process has released the address, or one with the same TCP port, and not bound it since, retries with
    /// short pauses until two seconds after the release. Retries for at least 50 ms, because the process may have been
    /// suspended.
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
    Entries released; ///< in order of release
    Index index;
    Holders holders;
};

} // namespace rk::socket::detail
