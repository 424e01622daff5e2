#include <rk/detail/LogBackend.h>
#include <rk/detail/LogIfPossible.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/detail/Authenticator.h>
#include <rk/socket/detail/ContextGate.h>
#include <rk/socket/detail/NetworkSettings.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace rk::socket {

namespace {

/// Takes the settings first: a lock that fails must not leave a context behind.
void* newContext() {
    const std::optional<int> maxSockets = detail::NetworkSettings::takeMaxSockets();
    void* const context = zmq_ctx_new();
    if (maxSockets) {
        zmq_ctx_set(context, ZMQ_MAX_SOCKETS, *maxSockets);
    }
    return context;
}

} // namespace

SocketContext::SocketContext() : MessageFormatter("SocketContext"), context(newContext()) {}

SocketContext::~SocketContext() {
    const auto log = [this](const char* text) {
        rk::detail::logIfPossible(rk::utils::logDebug, [&] { return formatMessage(text); });
    };
    log("Terminating 0MQ context");
    // Both functions are the same. If the first call succeeds, the handle is invalid, and the second call gets null. If
    // a signal interrupted the first call, the context still exists and the second call terminates it.
    if (zmq_term(context) == 0) {
        context = nullptr;
    }
    log("Terminating 0MQ context Done");
    log("Destroying 0MQ context");
    zmq_ctx_destroy(context);
    log("Destroying 0MQ context Done");
}

void* SocketContext::createSocket(Protocol::Protocol protocol) {
    const std::lock_guard<std::mutex> lock(contextMutex);
    return zmq_socket(context, Protocol::ToNativeProtocol(protocol));
}

namespace {

/// Returns whether enough descriptors are left for ZeroMQ's threads and a first socket. If ZeroMQ runs out of them
/// while it starts, it aborts the process or leaves a context that never works.
bool hasDescriptorsToStart() {
    std::array<int, 6> descriptors{};
    bool hasAll = true;
    for (int& descriptor : descriptors) {
        descriptor = open("/", O_RDONLY | O_CLOEXEC);
        hasAll = hasAll && (descriptor >= 0 || errno == EACCES); // a process may lack the permission
    }
    for (const int descriptor : descriptors) {
        close(descriptor);
    }
    return hasAll;
}

/// Shuts the gate before it destroys the context, so that no later call uses released memory.
class ProcessContext {
public:
    ProcessContext() = default;
    ~ProcessContext() { detail::ContextGate::ofProcess().shut(); }
    ProcessContext(const ProcessContext&) = delete;
    ProcessContext& operator=(const ProcessContext&) = delete;

private:
    /// Joins the authenticator's thread, which ends when the context is terminated. Declared first to be destroyed
    /// last.
    struct AuthenticatorEnd {
        AuthenticatorEnd() = default;
        ~AuthenticatorEnd() { detail::Authenticator::ofProcess().join(); }
        AuthenticatorEnd(const AuthenticatorEnd&) = delete;
        AuthenticatorEnd& operator=(const AuthenticatorEnd&) = delete;
    } authenticator;

public:
    SocketContext context;
};

void* createInProcessContext(Protocol::Protocol protocol) {
    static bool started = false;
    if (!started && !hasDescriptorsToStart()) {
        errno = EMFILE;
        return nullptr;
    }
    static ProcessContext process;
    void* const socket = process.context.createSocket(protocol);
    started = started || socket != nullptr;
    return socket;
}

} // namespace

void* getSocket(Protocol::Protocol protocol) {
    rk::detail::prepareForExit();
    void* socket = nullptr;
    errno = detail::ContextGate::ofProcess().pass([&] {
        socket = createInProcessContext(protocol);
        return errno;
    });
    return socket;
}

} // namespace rk::socket
