#include <rk/detail/Immortal.h>
#include <rk/socket/detail/AddressBook.h>
#include <rk/socket/detail/ContextGate.h>

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

namespace rk::socket::detail {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// ZeroMQ needs up to 5 ms to release an address, 155 ms under valgrind. The rest is a margin for a busy machine.
constexpr seconds releaseTime{2};
constexpr milliseconds leastPatience{50};
constexpr microseconds firstPause{100};
constexpr microseconds longestPause{5000};

bool isTcp(std::string_view address) {
    return address.compare(0, 6, "tcp://") == 0;
}

std::string_view portOf(std::string_view address) {
    return address.substr(address.rfind(':') + 1);
}

/// Returns whether a socket that holds the first address can keep another from binding the second. TCP addresses with
/// the same port can overlap. A bind to port 0 may have chosen any port.
bool canBlock(std::string_view held, std::string_view wanted) {
    return held == wanted || (isTcp(held) && isTcp(wanted) && (portOf(held) == portOf(wanted) || portOf(held) == "0"));
}

} // namespace

AddressBook& AddressBook::ofProcess() {
    static rk::detail::Immortal<AddressBook> book;
    return *book;
}

int AddressBook::bind(void* socket, const std::string& address) {
    // Allocated first, so that the bind cannot succeed without its entry.
    Entries entry;
    entry.push_back({address, socket, {}});
    Index indexed;
    indexed.emplace(entry.front().address, entry.begin());
    Holders holder;
    holder.emplace(socket, entry.begin());

    const Clock::time_point firstAttempt = Clock::now();
    microseconds pause = firstPause;
    int error = ContextGate::ofProcess().bind(socket, address);
    while (error == EADDRINUSE && isBeingReleased(address, firstAttempt)) {
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, longestPause);
        error = ContextGate::ofProcess().bind(socket, address);
    }
    if (error == 0) {
        enter(entry, indexed.extract(indexed.begin()), holder.extract(holder.begin()));
    }
    return error;
}

void AddressBook::close(void* socket) noexcept {
    try {
        releaseAddressesOf(socket);
    } catch (...) {
        // The lock failed. The next bind of these addresses does not wait for them.
    }
    zmq_close(socket);
}

bool AddressBook::isBeingReleased(const std::string& address, Clock::time_point firstAttempt) {
    const std::lock_guard<std::mutex> lock(mutex);
    const Clock::time_point now = Clock::now();
    return std::any_of(index.begin(), index.end(), [&](const Index::value_type& latest) {
        const Entry& entry = *latest.second;
        return entry.holder == nullptr && canBlock(entry.address, address) &&
               now < std::max(entry.releasedAt + releaseTime, firstAttempt + leastPatience);
    });
}

void AddressBook::enter(Entries& entry, Index::node_type indexed, Holders::node_type holder) {
    const std::lock_guard<std::mutex> lock(mutex);
    held.splice(held.end(), entry);
    index.erase(indexed.key());
    index.insert(std::move(indexed));
    holders.insert(std::move(holder));
    forgetExpired();
}

/// Releases before the close. Otherwise another thread could find the address in use and no release to wait for.
void AddressBook::releaseAddressesOf(void* socket) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto [first, last] = holders.equal_range(socket);
    for (auto holder = first; holder != last; ++holder) {
        const auto entry = holder->second;
        entry->holder = nullptr;
        entry->releasedAt = Clock::now();
        released.splice(released.end(), held, entry);
    }
    holders.erase(first, last);
    forgetExpired();
}

/// Drops at most two entries: more than a call adds, and few enough not to stall it.
void AddressBook::forgetExpired() {
    const Clock::time_point limit = Clock::now() - releaseTime;
    for (int dropped = 0; dropped < 2 && !released.empty() && released.front().releasedAt < limit; ++dropped) {
        const auto found = index.find(released.front().address);
        if (found != index.end() && found->second == released.begin()) {
            index.erase(found);
        }
        released.pop_front();
    }
}

} // namespace rk::socket::detail
