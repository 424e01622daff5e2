#include <rk/detail/Immortal.h>
#include <rk/detail/SignalMask.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/detail/AddressBook.h>
#include <rk/socket/detail/Authenticator.h>
#include <rk/socket/detail/ContextGate.h>
#include <rk/socket/detail/Credentials.h>
#include <rk/socket/detail/RefusalLog.h>

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <iterator>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace rk::socket::detail {

namespace {

struct CloseInBook {
    void operator()(void* socket) const { AddressBook::ofProcess().close(socket); }
};

using NativeSocket = std::unique_ptr<void, CloseInBook>;

struct Frame {
    std::string_view text() const { return {bytes, size}; }

    char bytes[256]; // ZeroMQ's fields are shorter
    std::size_t size;
};

/// A request from ZeroMQ. The members are in the order of the frames.
struct Request {
    Frame version{};
    Frame id{};
    Frame domain{};
    Frame address{};
    Frame identity{};
    Frame mechanism{};
    Frame key{};
};

constexpr Frame Request::* const requestFrames[] = {&Request::version, &Request::id,       &Request::domain,
                                                    &Request::address, &Request::identity, &Request::mechanism,
                                                    &Request::key};

/// Repeats `call` while a signal interrupts it. Returns false if it fails for another reason.
template <class Call>
bool succeeds(const Call& call) {
    while (call() < 0) {
        if (zmq_errno() != EINTR) {
            return false;
        }
    }
    return true;
}

bool receive(void* socket, Frame& frame) {
    int size = 0;
    const bool received = succeeds([&] { return size = zmq_recv(socket, frame.bytes, sizeof frame.bytes, 0); });
    frame.size = std::min(static_cast<std::size_t>(size), sizeof frame.bytes);
    return received;
}

/// Receives all frames. Truncates frames that are too long, and drops surplus frames.
bool receive(void* socket, Request& request) {
    Frame surplus{};
    int more = 1;
    std::size_t size = sizeof more;
    for (const auto* field = std::begin(requestFrames); more != 0;) {
        Frame& frame = field != std::end(requestFrames) ? request.**field++ : surplus;
        if (!receive(socket, frame) || !succeeds([&] { return zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size); })) {
            return false;
        }
    }
    return true;
}

bool reply(void* socket, const Request& request, bool admitted) {
    // After 300, the client retries. After 400 it would never retry, even once it is trusted.
    const std::string_view status = admitted ? "200" : "300";
    const std::string_view none;
    const std::array<std::string_view, 6> frames{"1.0", request.id.text(), status, none, none, none};
    return std::all_of(frames.begin(), frames.end(), [&](const std::string_view& frame) {
        const int flags = &frame == &frames.back() ? 0 : ZMQ_SNDMORE;
        return succeeds([&] { return zmq_send(socket, frame.data(), frame.size(), flags); });
    });
}

struct PrintedKey {
    char text[41] = "";
};

/// Returns the key of the client, or an empty string if it has none.
PrintedKey keyOf(const Request& request) {
    constexpr std::size_t keySize = 32;
    PrintedKey key;
    if (request.mechanism.text() == "CURVE" && request.key.size == keySize) {
        zmq_z85_encode(key.text, reinterpret_cast<const std::uint8_t*>(request.key.bytes), keySize);
    }
    return key;
}

bool isTrusted(const Request& request, std::string_view key) noexcept {
    if (request.mechanism.text() == "NULL") {
        return request.domain.text() == Authenticator::plainDomain;
    }
    try {
        const std::shared_ptr<const Credentials> credentials = Credentials::ofProcess();
        return credentials->trusted.admits(key) || key == credentials->wakeUp.publicKey;
    } catch (const std::exception&) {
        return false; // without the lock: the client tries again
    }
}

/// Replies to requests until the socket fails.
void serve(void* socket, RefusalLog& log) {
    for (Request request; receive(socket, request); request = {}) {
        const PrintedKey key = keyOf(request);
        const bool trusted = isTrusted(request, key.text);
        if (!reply(socket, request, trusted)) {
            return;
        }
        if (!trusted) {
            log.add(request.address.text(), key.text);
        }
    }
}

void run(NativeSocket socket, const std::unique_ptr<RefusalLog>& log) {
    serve(socket.get(), *log);
    const int error = zmq_errno();
    if (error != ETERM) {
        log->addEnd(error);
    }
}

} // namespace

Authenticator& Authenticator::ofProcess() {
    static rk::detail::Immortal<Authenticator> authenticator;
    return *authenticator;
}

int Authenticator::start() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (thread.joinable()) {
        return 0;
    }
    NativeSocket socket(getSocket(Protocol::Rep));
    const int error =
        socket ? AddressBook::ofProcess().bind(socket.get(), std::string("inproc://") + name) : zmq_errno();
    if (error != 0) {
        return error;
    }
    // Inside the gate, so that the thread never starts after process exit has checked for it.
    return ContextGate::ofProcess().pass([&] {
        const rk::detail::SignalMask mask(SIG_SETMASK, rk::detail::asynchronousSignals());
        auto log = std::make_unique<RefusalLog>();
        thread = std::thread(run, std::move(socket), std::move(log));
        process = getpid();
        return 0;
    });
}

void Authenticator::join() noexcept {
    if (process == getpid()) {
        thread.join();
    }
}

} // namespace rk::socket::detail
