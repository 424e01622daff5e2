#include <rk/detail/SignalMask.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/detail/Failures.h>
#include <rk/socket/utils/Requester.h>

#include <google/protobuf/message.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <stdexcept>

namespace rk::socket::utils {

namespace {

using std::chrono::milliseconds;

/// Holds a message of any size.
class NativeMessage {
public:
    NativeMessage() { zmq_msg_init(&message); }
    ~NativeMessage() { zmq_msg_close(&message); }
    NativeMessage(const NativeMessage&) = delete;
    NativeMessage& operator=(const NativeMessage&) = delete;

    zmq_msg_t* get() { return &message; }

private:
    zmq_msg_t message{};
};

std::string serialized(const google::protobuf::Message& request, const std::string& header) {
    if (!request.IsInitialized()) {
        detail::refuseUninitialized(request, header);
    }
    std::string bytes;
    if (!request.SerializePartialToString(&bytes)) {
        detail::refuseOversized(request.ByteSizeLong(), header);
    }
    return bytes;
}

} // namespace

/// The end of an attempt.
class Requester::Deadline {
public:
    explicit Deadline(milliseconds patience) : timeout(patience) {}

    /// Waits for an event of `native`. Returns false once the time is over. A failed poll, for example because of a
    /// signal, ends the wait early: the caller retries its call, which reports the error.
    bool await(void* native, short event) const {
        // Subtract in milliseconds, in which the longest timeout does not overflow.
        const milliseconds left = timeout - std::chrono::floor<milliseconds>(Clock::now() - begin);
        if (left <= milliseconds::zero()) {
            return false;
        }
        zmq_pollitem_t item{native, 0, event, 0};
        zmq_poll(&item, 1, static_cast<long>(std::min<milliseconds::rep>(left.count(), INT_MAX)));
        return true;
    }

    /// Retries the non-blocking `call`, which returns a negative number on failure, until it succeeds. Returns its
    /// result, or nothing if the time runs out first.
    template <class Call>
    std::optional<int> retry(const Call& call, void* native, short event, const char* operation, const char* prefix,
                             const std::string& header) const {
        int result = call();
        while (result < 0) {
            const int error = zmq_errno();
            if (error != EAGAIN && error != EINTR) {
                detail::throwTransferFailure(operation, prefix, header);
            }
            if (!await(native, event)) {
                return std::nullopt;
            }
            result = call();
        }
        return result;
    }

private:
    using Clock = std::chrono::steady_clock;

    const milliseconds timeout;
    const Clock::time_point begin = Clock::now();
};

Requester::Requester(const std::string& name, const SocketEndpoint& target)
    : socket(name, ClosePolicy::DropPending), server(target) {}

Requester::~Requester() = default;

void Requester::request(const google::protobuf::Message& request, google::protobuf::Message& reply,
                        milliseconds timeout, unsigned int attempts) {
    const std::string header = socket.debugString();
    if (attempts == 0 || timeout < milliseconds(1)) {
        throw std::invalid_argument(header + ": A request needs an attempt of at least 1 ms");
    }
    const std::string bytes = serialized(request, header);
    for (unsigned int made = 0; made < attempts; ++made) {
        if (attempt(bytes, reply, timeout)) {
            return;
        }
    }
    throw TimeoutException(header + ": No reply from " + server.toString(Protocol::Req) + " within " +
                           std::to_string(timeout.count()) + " ms, attempts made: " + std::to_string(attempts));
}

/// Returns false if the time runs out. The socket stays open only if it is ready for the next request. A socket that
/// still expects a reply would reject it.
bool Requester::attempt(const std::string& request, google::protobuf::Message& reply, milliseconds timeout) {
    try {
        open();
        if (exchange(request, reply, Deadline(timeout))) {
            return true;
        }
    } catch (...) {
        socket.close();
        throw;
    }
    socket.close();
    return false;
}

void Requester::open() {
    if (socket.isOpen()) {
        return;
    }
    socket.create(Protocol::Req);
    // A new connection is not enough: a server's second reply to one request would pass as the reply to the next.
    const int on = 1;
    if (zmq_setsockopt(socket.zmqSocket, ZMQ_REQ_CORRELATE, &on, sizeof on) < 0) {
        const int error = zmq_errno();
        throw std::runtime_error("Socket: Error setting ZMQ_REQ_CORRELATE " +
                                 detail::failureText(error, socket.debugString()));
    }
    // A signal would make the connect fail.
    const rk::detail::SignalMask mask(SIG_BLOCK, rk::detail::asynchronousSignals());
    socket.connect(server, 0);
}

bool Requester::exchange(const std::string& request, google::protobuf::Message& reply, const Deadline& deadline) {
    void* const native = socket.zmqSocket;
    const std::string header = socket.debugString();
    const auto send = [&] { return zmq_send(native, request.data(), request.size(), ZMQ_DONTWAIT); };
    if (!deadline.retry(send, native, ZMQ_POLLOUT, "send()", "Send error: ", header)) {
        return false;
    }
    NativeMessage message;
    const auto receive = [&] { return zmq_msg_recv(message.get(), native, ZMQ_DONTWAIT); };
    const std::optional<int> size = deadline.retry(receive, native, ZMQ_POLLIN, "recv()", "Receive error: ", header);
    if (!size) {
        return false;
    }
    if (zmq_msg_more(message.get()) != 0 || !reply.ParseFromArray(zmq_msg_data(message.get()), *size)) {
        detail::refuseUnparsed(header);
    }
    return true;
}

} // namespace rk::socket::utils
