#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>
#include <rk/utils/Log.h>
#include <rk/utils/detail/LogIfPossible.h>

#include <google/protobuf/message.h>

#include <csignal>
#include <exception>
#include <utility>

namespace rk::socket::utils {

namespace {

/// Blocks all signals on the calling thread for as long as it lives; a thread made meanwhile starts that way.
class SignalBlock {
public:
    SignalBlock() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t previous{};
};

/// A socket whose record cannot be locked has closed its native socket all the same.
void closeQuietly(Socket& socket) noexcept {
    try {
        socket.close();
    } catch (const std::exception&) {
        // There is nothing left to be done.
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
    error.clear();
    if (thread) {
        error = makeErrorString("Failed starting thread: another thread is already running");
        return false;
    }
    if (protocol != Protocol::Sub && protocol != Protocol::Rep) {
        error = makeErrorString("Only Sub and Rep protocols are supported");
        return false;
    }
    const auto socket = std::make_shared<Socket>(name, ClosePolicy::DropPending);
    try {
        socket->create(protocol);
    } catch (const std::exception& failure) {
        error = makeErrorString(std::string("Failed creating socket: ") + failure.what());
        return false;
    }
    connectAll(*socket);
    stopRequested = false;
    // The signals of the process are for the application's threads: one that ended a poll would end the listener.
    const SignalBlock block;
    thread = std::make_shared<std::thread>([this, socket] { threadFunction(socket); });
    return true;
}

void SocketListener::connectAll(Socket& socket) const {
    for (const SocketEndpoint& endpoint : endpoints) {
        try {
            socket.connect(endpoint, 0);
        } catch (const std::exception& failure) {
            rk::utils::logError(formatMessage("Failed connecting endpoint " + endpoint.toString(Protocol::Undef) +
                                              ": " + failure.what()));
        }
    }
}

bool SocketListener::stop(std::string& error) {
    error.clear();
    if (!thread) {
        return true;
    }
    bool joined = true;
    stopRequested = true;
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

/// Nothing may leave the thread, whatever fails on it.
void SocketListener::logFailure(const char* what, const char* reason, const char* consequence) const noexcept {
    rk::utils::detail::logIfPossible(rk::utils::logError,
                                     [&] { return makeErrorString(std::string(what) + reason + consequence); });
}

void SocketListener::serveUntilStopped(const std::shared_ptr<Socket>& socket) {
    while (!stopRequested) {
        std::string error;
        const PollResult::PollResult result = socket->poll(pollTimeoutMs, error);
        if (result == PollResult::Timeout) {
            continue;
        }
        if (result != PollResult::Input || !serve(socket)) {
            logFailure("Poll error on socket. Aborting listener thread.");
            return;
        }
    }
}

/// Receives and handles the message that waits. False when the socket cannot be polled any more.
bool SocketListener::serve(const std::shared_ptr<Socket>& socket) {
    const std::shared_ptr<google::protobuf::Message> message = createMessage();
    try {
        socket->receiveProtoBuf(message.get(), messageBufferSize);
        handleMessage(message.get(), socket);
    } catch (const std::exception& failure) {
        logFailure("Failed handling received message: ", failure.what());
    }
    std::string error;
    return protocol != Protocol::Rep || socket->abandonUnansweredRequest(error);
}

} // namespace rk::socket::utils
