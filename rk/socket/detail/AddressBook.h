#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

namespace rk::socket::detail {

/// Lets this process take an address again that it has just given up.
///
/// 0MQ closes a socket in the background: for some milliseconds after `zmq_close` the socket's addresses are still
/// taken, and whoever binds one of them is refused. Every socket of the library therefore binds and closes through the
/// book of the process. It knows which native socket holds which address and when an address was given up, so that a
/// bind waits for an address that 0MQ is about to release, and is refused at once when somebody else holds it.
///
/// Any thread may call the operations. The mutex is never held across a call to 0MQ.
class AddressBook {
public:
    /// The book of the process. It is never destroyed: sockets are still closed while static objects are.
    static AddressBook& ofProcess();

    /// `zmq_bind`, repeated with short pauses while `address` is one that this process has given up and nobody in it
    /// has taken since: until two seconds after it was given up, and at least for 50 ms, should the process have been
    /// stopped meanwhile. Returns what `zmq_bind` returned last, with its error left in `zmq_errno`.
    int bind(void* socket, const std::string& address);

    /// `zmq_close`, giving up every address that `socket` has bound.
    void close(void* socket) noexcept;

private:
    using Clock = std::chrono::steady_clock;

    struct Holding {
        void* holder = nullptr; ///< null once the address is given up
        Clock::time_point givenUp;
    };
    using Holdings = std::map<std::string, Holding>;
    using Holders = std::multimap<void*, std::string>;

    bool isBeingReleased(const std::string& address, Clock::time_point firstAttempt);
    void enter(Holdings::node_type entry, Holders::node_type holder);
    void giveUpAddressesOf(void* socket);
    void forgetOld();

    std::mutex mutex;
    Holdings holdings;
    Holders holders; ///< the same, the other way round, so that a socket's addresses are found at once
    std::size_t sizeToForgetAt = 64;
};

} // namespace rk::socket::detail
