#include <rk/socket/SocketContext.h>
#include <rk/utils/Log.h>
#include <rk/utils/detail/LogBackend.h>
#include <rk/utils/detail/LogIfPossible.h>

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace rk::socket {

SocketContext::SocketContext() : MessageFormatter("SocketContext"), context(zmq_ctx_new()) {}

SocketContext::~SocketContext() {
    const auto log = [this](const char* text) {
        rk::utils::detail::logIfPossible(rk::utils::logDebug, [&] { return formatMessage(text); });
    };
    log("Terminating 0MQ context");
    // Both calls are names of one. A handle that the first has released may already be another context's memory; one
    // that it left alive, because a signal interrupted it, is the second's to terminate.
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

/// Decides whether a socket may still be had. It has no destructor, since sockets are asked for until the process is
/// gone.
struct Gate {
    std::mutex mutex;
    bool started = false;
    bool shut = false;
};
Gate gate;

/// Whether as many descriptors are left as 0MQ takes for its threads and a first socket. Out of them in the midst of
/// that, it aborts the process; out of them before, it leaves a context that is of no use ever after.
bool hasDescriptorsToStart() {
    std::array<int, 6> descriptors{};
    for (int& descriptor : descriptors) {
        descriptor = eventfd(0, EFD_CLOEXEC);
    }
    const bool hasAll = std::none_of(descriptors.begin(), descriptors.end(), [](int fd) { return fd < 0; });
    for (const int descriptor : descriptors) {
        close(descriptor);
    }
    return hasAll;
}

/// The context of the process. The gate shuts before the context is destroyed, and only once no socket is being made:
/// no call can reach the context's memory after 0MQ has released it.
class ProcessContext {
public:
    ProcessContext() = default;
    ~ProcessContext() {
        const std::lock_guard<std::mutex> lock(gate.mutex);
        gate.shut = true;
    }
    ProcessContext(const ProcessContext&) = delete;
    ProcessContext& operator=(const ProcessContext&) = delete;

    SocketContext context;
};

} // namespace

void* getSocket(Protocol::Protocol protocol) {
    rk::utils::detail::prepareForExit();
    const std::lock_guard<std::mutex> lock(gate.mutex);
    if (gate.shut) {
        errno = ETERM;
        return nullptr;
    }
    if (!gate.started && !hasDescriptorsToStart()) {
        errno = EMFILE;
        return nullptr;
    }
    static ProcessContext process;
    void* const socket = process.context.createSocket(protocol);
    gate.started = gate.started || socket != nullptr;
    return socket;
}

} // namespace rk::socket
