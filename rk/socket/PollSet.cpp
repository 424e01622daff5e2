#include <rk/socket/PollSet.h>
#include <rk/socket/Socket.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace rk::socket {

namespace {

/// Returns the number of items that are ready, or 0 after a signal.
int poll(zmq_pollitem_t* items, std::size_t count, long milliseconds) {
    // With nothing to poll, ZeroMQ's sleep ignores signals.
    const int ready = count == 0 ? ::poll(nullptr, 0, static_cast<int>(milliseconds))
                                 : zmq_poll(items, static_cast<int>(count), milliseconds);
    if (ready >= 0) {
        return ready;
    }
    const int error = zmq_errno();
    if (error == EINTR) {
        return 0;
    }
    if (error == ETERM) {
        throw ZmqContextTerminationException("Context terminated in poll() for a set of sockets");
    }
    throw std::runtime_error(std::string("Cannot poll a set of sockets: ") + zmq_strerror(error));
}

template <class Items>
auto findItem(Items& items, const Socket* socket, int descriptor) {
    return std::find_if(items.begin(), items.end(),
                        [=](const auto& item) { return item->socket == socket && item->descriptor == descriptor; });
}

} // namespace

/// A socket or a descriptor.
struct PollSet::Item {
    Socket* socket;
    int descriptor; ///< 0 for a socket
    std::function<void()> handler;

    /// Reads the native socket each time, because a rebuild replaces it. For a null socket,
    /// ZeroMQ would poll descriptor 0.
    zmq_pollitem_t toPoll() const {
        if (socket == nullptr) {
            return {nullptr, descriptor, ZMQ_POLLIN, 0};
        }
        if (!socket->isOpen()) {
            throw std::runtime_error("Socket: Cannot poll a NULL socket");
        }
        return {socket->zmqSocket, 0, ZMQ_POLLIN, 0};
    }

    bool isReady() const {
        zmq_pollitem_t item = toPoll();
        return poll(&item, 1, 0) != 0;
    }
};

PollSet::PollSet() = default;

PollSet::~PollSet() = default;

void PollSet::add(Socket& socket, std::function<void()> handler) {
    insert({&socket, 0, std::move(handler)});
}

void PollSet::add(int descriptor, std::function<void()> handler) {
    if (descriptor < 0) {
        throw std::invalid_argument("Cannot poll descriptor " + std::to_string(descriptor));
    }
    insert({nullptr, descriptor, std::move(handler)});
}

void PollSet::insert(Item item) {
    if (!item.handler) {
        throw std::invalid_argument("Cannot poll without a handler");
    }
    auto added = std::make_shared<const Item>(std::move(item));
    const auto former = findItem(items, added->socket, added->descriptor);
    if (former == items.end()) {
        items.push_back(std::move(added));
    } else {
        *former = std::move(added);
    }
}

void PollSet::remove(const Socket& socket) noexcept {
    remove(&socket, 0);
}

void PollSet::remove(int descriptor) noexcept {
    remove(nullptr, descriptor);
}

void PollSet::remove(const Socket* socket, int descriptor) noexcept {
    const auto found = findItem(items, socket, descriptor);
    if (found != items.end()) {
        items.erase(found);
    }
}

/// Moves an item to the end, so that the next `wait` calls the others first if its handler throws. Returns false if the
/// item has been removed.
bool PollSet::takeTurn(const std::shared_ptr<const Item>& item) {
    const auto found = std::find(items.begin(), items.end(), item);
    if (found == items.end()) {
        return false;
    }
    std::rotate(found, found + 1, items.end());
    return true;
}

unsigned int PollSet::wait(std::chrono::milliseconds timeout) {
    const Items polled = items; // keeps a handler alive that removes itself
    std::vector<zmq_pollitem_t> native;
    for (const auto& item : polled) {
        native.push_back(item->toPoll());
    }
    using Count = std::chrono::milliseconds::rep;
    const auto milliseconds = static_cast<long>(std::clamp<Count>(timeout.count(), -1, INT_MAX));
    poll(native.data(), native.size(), milliseconds);
    unsigned int called = 0;
    auto result = native.cbegin();
    for (const auto& item : polled) {
        if ((result++)->revents != 0 && takeTurn(item) && item->isReady()) {
            ++called;
            item->handler();
        }
    }
    return called;
}

} // namespace rk::socket
