#include <rk/socket/detail/AddressBook.h>

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace rk::socket::detail {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// 0MQ needs up to 5 ms to release an address, 155 ms under valgrind; the rest is for a machine under load.
constexpr seconds releaseTime{2};
constexpr milliseconds leastPatience{50};
constexpr microseconds firstPause{100};
constexpr microseconds longestPause{5000};
constexpr minutes memory{1};

} // namespace

AddressBook& AddressBook::ofProcess() {
    // In memory of its own, because sockets are closed where there is none left, too.
    alignas(AddressBook) static std::byte place[sizeof(AddressBook)];
    static auto* const book = ::new (static_cast<void*>(place)) AddressBook;
    return *book;
}

int AddressBook::bind(void* socket, const std::string& address) {
    // Made first, so that no memory is needed between the bind and its entry.
    Holdings fresh;
    fresh[address].holder = socket;
    Holdings::node_type entry = fresh.extract(address);
    Holders freshHolder;
    freshHolder.emplace(socket, address);
    Holders::node_type holder = freshHolder.extract(socket);

    const Clock::time_point firstAttempt = Clock::now();
    microseconds pause = firstPause;
    int result = zmq_bind(socket, address.c_str());
    int error = result < 0 ? zmq_errno() : 0;
    while (error == EADDRINUSE && isBeingReleased(address, firstAttempt)) {
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
        result = zmq_bind(socket, address.c_str());
        error = result < 0 ? zmq_errno() : 0;
    }
    if (result < 0) {
        errno = error;
        return result;
    }
    enter(std::move(entry), std::move(holder));
    return result;
}

void AddressBook::close(void* socket) noexcept {
    try {
        giveUpAddressesOf(socket);
    } catch (const std::exception&) {
        // Without the lock nothing is noted, and the next bind of these addresses is not waited for.
    }
    zmq_close(socket);
}

bool AddressBook::isBeingReleased(const std::string& address, Clock::time_point firstAttempt) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = holdings.find(address);
    if (found == holdings.end() || found->second.holder != nullptr) {
        return false;
    }
    return Clock::now() < std::max(found->second.givenUp + releaseTime, firstAttempt + leastPatience);
}

void AddressBook::enter(Holdings::node_type entry, Holders::node_type holder) {
    const std::lock_guard<std::mutex> lock(mutex);
    holdings.erase(entry.key());
    holdings.insert(std::move(entry));
    holders.insert(std::move(holder));
    forgetOld();
}

/// Noted before the socket is closed, so that no other thread finds the address taken and nobody to wait for.
void AddressBook::giveUpAddressesOf(void* socket) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto [first, last] = holders.equal_range(socket);
    for (auto entry = first; entry != last; ++entry) {
        const auto held = holdings.find(entry->second);
        // Another socket may have taken the address over meanwhile.
        if (held != holdings.end() && held->second.holder == socket) {
            held->second = {nullptr, Clock::now()};
        }
    }
    holders.erase(first, last);
}

/// Keeps the book small in a process that binds ever new addresses, at a cost that each new one pays its share of.
void AddressBook::forgetOld() {
    if (holdings.size() < sizeToForgetAt) {
        return;
    }
    const Clock::time_point limit = Clock::now() - memory;
    for (auto entry = holdings.begin(); entry != holdings.end();) {
        const bool old = entry->second.holder == nullptr && entry->second.givenUp < limit;
        entry = old ? holdings.erase(entry) : std::next(entry);
    }
    sizeToForgetAt = 2 * holdings.size() + 64;
}

} // namespace rk::socket::detail
