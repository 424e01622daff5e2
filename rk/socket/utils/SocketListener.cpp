#include <rk/detail/LogIfPossible.h>
#include <rk/detail/SignalMask.h>
#include <rk/socket/Socket.h>
#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/NetworkSettings.h>
#include <rk/socket/detail/SilenceWatch.h>
#include <rk/socket/detail/WakeUpCall.h>
#include <rk/socket/utils/SocketListener.h>
#include <rk/utils/Log.h>

#include <google/protobuf/message.h>

#include <chrono>
#include <csignal>
#include <exception>
#include <future>
#include <limits>
#include <stdexcept>
#include <utility>

namespace rk::socket::utils {

namespace {

/// How often `stop` checks whether the thread is still in the same receive. A queued message is received sooner.
constexpr std::chrono::milliseconds lookInterval{50};

sigset_t profilingSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPROF);
    return signals;
}

/// Makes a counter odd during its lifetime. Only one thread counts.
class InStep {
public:
    explicit InStep(std::atomic<std::uint32_t>& counted) : steps(counted) { count(); }
    ~InStep() { count(); }
    InStep(const InStep&) = delete;
    InStep& operator=(const InStep&) = delete;

private:
    void count() { steps.store(steps.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }

    std::atomic<std::uint32_t>& steps;
};

/// Closes the native socket even if the lock fails.
void closeQuietly(Socket& socket) noexcept {
    try {
        socket.close();
    } catch (const std::exception&) {
        // There is nothing left to do.
    }
}

} // namespace

SocketListener::SocketListener(Protocol::Protocol listenerProtocol, const std::string& listenerName)
    : MessageFormatter("Socket Listener on " + listenerName), protocol(listenerProtocol), name(listenerName) {}

SocketListener::~SocketListener() {
    std::string ignored;
    SocketListener::stop(ignored);
}

bool SocketListener::addListenEndpoint(const std::string& endpoint, std::string& error) {
    SocketEndpoint parsed;
    try {
        parsed = SocketEndpoint::FromString(endpoint);
    } catch (const std::exception& failure) {
        error = makeErrorString(std::string("Invalid endpoint: ") + failure.what());
        return false;
    }
    endpoints.push_back(parsed);
    if (!thread) {
        return true;
    }
    stop(error);
    return start(error);
}

bool SocketListener::removeListenEndpoint(const std::string& /*endpoint*/, std::string& error) {
    error.clear();
    return true;
}

bool SocketListener::start(std::string& error) {
    const std::shared_ptr<Socket> socket = open(error);
    if (!socket) {
        return false;
    }
    for (const std::string& failure : connectAll(*socket)) {
        rk::utils::logError(formatMessage(failure));
    }
    startThread(socket);
    return true;
}

bool SocketListener::startOnAll(std::string& error) {
    const std::shared_ptr<Socket> socket = open(error);
    if (!socket) {
        return false;
    }
    const std::list<std::string> failures = connectAll(*socket);
    if (!failures.empty()) {
        error = makeErrorString(failures.front());
        return false;
    }
    startThread(socket);
    return true;
}

/// Creates the socket of a listener that is not running. On failure returns null, with the reason in `error`.
std::shared_ptr<Socket> SocketListener::open(std::string& error) const {
    error.clear();
    if (thread) {
        error = makeErrorString("Failed starting thread: another thread is already running");
        return nullptr;
    }
    if (protocol != Protocol::Sub && protocol != Protocol::Rep) {
        error = makeErrorString("Only Sub and Rep protocols are supported");
        return nullptr;
    }
    auto socket = std::make_shared<Socket>(name, ClosePolicy::DropPending);
    socket->boundAddresses = std::make_unique<detail::BoundAddresses>();
    try {
        socket->create(protocol);
    } catch (const std::exception& failure) {
        error = makeErrorString(std::string("Failed creating socket: ") + failure.what());
        return nullptr;
    }
    return socket;
}

/// Returns the failures. The first closes the socket, so every later endpoint fails too.
std::list<std::string> SocketListener::connectAll(Socket& socket) const {
    std::list<std::string> failures;
    for (const SocketEndpoint& endpoint : endpoints) {
        try {
            socket.connect(endpoint, 0);
        } catch (const std::exception& failure) {
            failures.push_back("Failed connecting endpoint " + endpoint.toString(Protocol::Undef) + ": " +
                               failure.what());
        }
    }
    return failures;
}

void SocketListener::startThread(const std::shared_ptr<Socket>& socket) {
    // In this order: a promise that is destroyed while it has a future stores an exception there, which allocates.
    threadEnded = std::future<void>();
    threadEnd = std::promise<void>();
    threadEnded = threadEnd.get_future();
    // Leave asynchronous signals to the application's threads: a signal that interrupts a poll would end the listener.
    const rk::detail::SignalMask mask(SIG_SETMASK, rk::detail::asynchronousSignals());
    serving = socket->isOpen();
    threadSocket = socket; // before the thread starts, because handlers read it
    try {
        thread = std::make_shared<std::thread>([this, socket] {
            threadFunction(socket);
            serving = false;
            threadEnd.set_value();
        });
    } catch (...) {
        serving = false;
        throw;
    }
}

bool SocketListener::isServing() const {
    return serving;
}

SocketEndpoint SocketListener::lastEndpoint() const {
    const std::shared_ptr<Socket> socket = threadSocket.lock();
    return socket ? socket->lastEndpoint() : SocketEndpoint();
}

void SocketListener::setMessageBufferSize(std::uint32_t bytes) {
    if (bytes == 0 || bytes > std::numeric_limits<std::int32_t>::max()) {
        throw std::invalid_argument(makeErrorString("Wrong message buffer size"));
    }
    messageBufferSize = bytes;
}

bool SocketListener::stop(std::string& error) {
    error.clear();
    if (!thread) {
        return true;
    }
    bool joined = true;
    stopRequested = true;
    awaitEnd();
    try {
        thread->join();
    } catch (const std::exception& failure) {
        error = makeErrorString(std::string("Failed joining thread: ") + failure.what());
        joined = false;
    }
    thread.reset();
    stopRequested = false;
    return joined;
}

/// Waits until the thread has ended, and wakes it if it is blocked in a receive. For a request without ZeroMQ's
/// delimiter the poll reports input, but the receive discards it and blocks until the next request.
void SocketListener::awaitEnd() {
    if (thread->get_id() == std::this_thread::get_id()) {
        return; // a thread cannot join itself
    }
    detail::WakeUpCall call;
    std::uint32_t before = receiveSteps;
    while (threadEnded.wait_for(lookInterval) != std::future_status::ready) {
        const std::uint32_t now = receiveSteps;
        if (now == before && now % 2 == 1) {
            wake(call);
        }
        before = now;
    }
}

/// Best effort: the next check retries.
void SocketListener::wake(detail::WakeUpCall& call) {
    try {
        const std::shared_ptr<Socket> socket(threadSocket);
        call.send(*socket->boundAddresses, socket->connectionMutex);
    } catch (const std::exception&) {
        // A lock or memory may be available again at the next check.
    }
}

void SocketListener::requireHandler(bool hasHandler) const {
    if (!hasHandler) {
        throw std::invalid_argument(makeErrorString("Cannot listen without a handler"));
    }
}

std::string SocketListener::makeErrorString(const std::string& message) const {
    return "[Socket Listener " + Protocol::ToString(protocol) + "] " + message;
}

void SocketListener::threadFunction(std::shared_ptr<Socket> socket) {
    if (!socket) {
        return;
    }
    try {
        serveUntilStopped(socket);
        socket->close();
    } catch (const std::exception& failure) {
        logFailure("Failed reading socket: ", failure.what(), ". Aborting listener thread.");
        closeQuietly(*socket);
    }
}

/// Does not throw, because no exception may leave the thread.
void SocketListener::logFailure(const char* what, const char* reason, const char* consequence) const noexcept {
    rk::detail::logIfPossible(rk::utils::logError,
                              [&] { return makeErrorString(std::string(what) + reason + consequence); });
}

void SocketListener::serveUntilStopped(const std::shared_ptr<Socket>& socket) {
    const unsigned int limit = detail::NetworkSettings::ofProcess().silenceLimit;
    detail::SilenceWatch silence(protocol == Protocol::Sub ? limit : 0);
    while (!stopRequested) {
        std::string error;
        const PollResult::PollResult result = socket->poll(pollTimeoutMs, error);
        if (result == PollResult::Timeout) {
            if (silence.goesOnTooLong()) {
                endSilence(*socket, silence);
            }
            continue;
        }
        silence.end();
        if (result != PollResult::Input || !serve(socket)) {
            logFailure("Poll error on socket. Aborting listener thread.");
            return;
        }
    }
}

/// Loses no queued message, because the last poll has found none.
void SocketListener::endSilence(Socket& socket, const detail::SilenceWatch& silence) {
    if (silence.isFirstAttempt()) {
        rk::detail::logIfPossible(rk::utils::logWarning, [&] {
            return formatMessage("Nothing received for " + std::to_string(silence.limitSeconds()) +
                                 " s. Connecting again until something is.");
        });
    }
    socket.reconnect();
}

/// Receives and handles one message. Returns false if the socket cannot be polled any more.
bool SocketListener::serve(const std::shared_ptr<Socket>& socket) {
    const std::shared_ptr<google::protobuf::Message> message = createMessage();
    try {
        receive(*socket, message.get());
        const rk::detail::SignalMask mask(SIG_UNBLOCK, profilingSignal());
        handleMessage(message.get(), socket);
    } catch (const std::exception& failure) {
        if (stopRequested && detail::WakeUpCall::isIn(socket->receiveBuffer.get(), socket->receiveBufferSize)) {
            return true;
        }
        logFailure("Failed handling received message: ", failure.what());
    }
    std::string error;
    return protocol != Protocol::Rep || socket->abandonUnansweredRequest(error);
}

void SocketListener::receive(Socket& socket, google::protobuf::Message* message) {
    const InStep step(receiveSteps);
    socket.receiveProtoBuf(message, messageBufferSize);
}

} // namespace rk::socket::utils
