#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/ZmqContextTerminationException.h>
#include <rk/socket/detail/AddressBook.h>
#include <rk/utils/Log.h>
#include <rk/utils/detail/LogIfPossible.h>

#include <google/protobuf/message.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <limits>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

// A function marked cold is one that hardly any message meets: what it needs is kept out of the way of all others.

namespace rk::socket {

namespace {

constexpr std::uint32_t blocksPerPeriod = 50;

bool binds(Protocol::Protocol protocol) {
    return protocol == Protocol::Pub || protocol == Protocol::Rep;
}

bool connects(Protocol::Protocol protocol) {
    return protocol == Protocol::Sub || protocol == Protocol::Req;
}

const char* connectionPhrase(Protocol::Protocol protocol) {
    switch (protocol) {
    case Protocol::Pub:
    case Protocol::Req:
        return ", sending to ";
    case Protocol::Sub:
        return ", subscribing to ";
    case Protocol::Rep:
        return ", listening on ";
    case Protocol::Undef:
        break;
    }
    return ", [undef protocol] to ";
}

int lingerMilliseconds(ClosePolicy::ClosePolicy policy) {
    switch (policy) {
    case ClosePolicy::DropPending:
        return 0;
    case ClosePolicy::LingerTwoSeconds:
        return 2000;
    case ClosePolicy::WaitForDelivery:
        break;
    }
    return -1;
}

double wallClockSeconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0;
}

/// Keeps `errno`, and with it `zmq_errno`, for whoever has yet to read it.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = kept; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int kept = errno;
};

/// The same text for equal endpoints, and for no others.
std::string keyOf(const SocketEndpoint& endpoint) {
    const std::string key = std::to_string(endpoint.transport) + " " + endpoint.address;
    return endpoint.transport == Transport::Tcp ? key + ":" + std::to_string(endpoint.port) : key;
}

std::string missingFields(const google::protobuf::Message& message) {
    std::vector<std::string> fields;
    message.FindInitializationErrors(&fields);
    std::string text;
    for (const std::string& field : fields) {
        text += "[" + field + "]";
    }
    return text;
}

[[noreturn, gnu::cold]] void refuseClosed(const char* reason) {
    throw std::runtime_error(reason);
}

} // namespace

// Creation and closing

Socket::Socket(const std::string& socketName, ClosePolicy::ClosePolicy policy)
    : MessageFormatter("Socket " + socketName),
      name(socketName),
      closePolicy(policy),
      header("[Socket " + socketName + "]") {}

Socket::~Socket() {
    close();
}

void Socket::create(Protocol::Protocol newProtocol) {
    close();
    zmqSocket = getSocket(newProtocol);
    if (zmqSocket == nullptr) {
        const int error = zmq_errno();
        throw std::runtime_error("Socket: Failed creating socket " + debugString() + " of type " +
                                 std::to_string(newProtocol) + ": " + failureText(error));
    }
    protocol = newProtocol;
}

void Socket::close() {
    closeNativeSocket();
    const std::lock_guard<std::mutex> lock(connectionMutex);
    protocol = Protocol::Undef;
    endpoint = SocketEndpoint();
    receiveTimeoutText = "undef";
    connections.clear();
    connectionKeys.clear();
}

void Socket::closeNativeSocket() noexcept {
    if (zmqSocket != nullptr) {
        detail::AddressBook::ofProcess().close(zmqSocket);
        zmqSocket = nullptr;
    }
}

std::string Socket::debugString() const {
    return header;
}

/// Taken with the error number as an argument: whatever runs after a failed call may change `zmq_errno`.
std::string Socket::failureText(int error) const {
    return zmq_strerror(error) + (" on " + header);
}

// Connecting

void Socket::connect(const SocketEndpoint& target, unsigned int receiveTimeout) {
    if (zmqSocket == nullptr) {
        throw std::runtime_error("Socket: Cannot connect a NULL socket");
    }
    try {
        if (!isConnectedTo(target)) {
            attach(target, receiveTimeout);
        }
    } catch (...) {
        close();
        throw;
    }
}

bool Socket::isConnectedTo(const SocketEndpoint& target) const {
    return connectionKeys.count(keyOf(target)) != 0;
}

void Socket::attach(const SocketEndpoint& target, unsigned int receiveTimeout) {
    if (protocol == Protocol::Sub) {
        closePolicy = ClosePolicy::DropPending;
    }
    rk::utils::logDebug("Connecting " + debugString() + connectionPhrase(protocol) + target.toString(protocol));
    bindOrConnect(target);
    if (target.transport == Transport::Ipc && binds(protocol)) {
        // Processes of any user may connect. One who may not change the file has to live with what it is.
        static_cast<void>(chmod(target.address.c_str(), 0777));
    }
    setOptions(receiveTimeout);
    remember(target, receiveTimeout);
    rk::utils::logDebug("Connected " + debugString());
}

void Socket::bindOrConnect(const SocketEndpoint& target) {
    const std::string address = target.toString(protocol);
    int result = -1;
    if (binds(protocol)) {
        result = detail::AddressBook::ofProcess().bind(zmqSocket, address);
    } else if (connects(protocol)) {
        result = zmq_connect(zmqSocket, address.c_str());
    } else {
        throw std::runtime_error("Socket: Socket type not handled");
    }
    if (result < 0) {
        throw std::runtime_error("Socket: Failed connecting/binding socket: " + failureText(zmq_errno()));
    }
}

void Socket::setOptions(unsigned int receiveTimeout) {
    if (receiveTimeout != 0) {
        const int milliseconds = static_cast<int>(receiveTimeout);
        if (zmq_setsockopt(zmqSocket, ZMQ_RCVTIMEO, &milliseconds, sizeof milliseconds) < 0) {
            throw std::runtime_error("Socket: Error setting ZMQ_RCVTIMEO " + failureText(zmq_errno()));
        }
    }
    if (protocol == Protocol::Sub && zmq_setsockopt(zmqSocket, ZMQ_SUBSCRIBE, nullptr, 0) < 0) {
        throw std::runtime_error("Socket: Error setting ZMQ_SUBSCRIBE " + failureText(zmq_errno()));
    }
    const int linger = lingerMilliseconds(closePolicy);
    zmq_setsockopt(zmqSocket, ZMQ_LINGER, &linger, sizeof linger);
}

void Socket::remember(const SocketEndpoint& target, unsigned int receiveTimeout) {
    {
        const std::lock_guard<std::mutex> lock(connectionMutex);
        endpoint = target;
        receiveTimeoutText = std::to_string(receiveTimeout);
    }
    connections.emplace_back(target, receiveTimeout);
    connectionKeys.insert(keyOf(target));
}

void Socket::createAndConnect(Protocol::Protocol newProtocol, const SocketEndpoint& target,
                              unsigned int receiveTimeout) {
    create(newProtocol);
    connect(target, receiveTimeout);
}

// Repair

void Socket::resetConnections() noexcept {
    if (zmqSocket == nullptr) {
        return;
    }
    const auto recorded = connections;
    try {
        create(protocol);
        for (const auto& [target, receiveTimeout] : recorded) {
            connect(target, receiveTimeout);
        }
    } catch (const std::exception& failure) {
        rk::utils::detail::logIfPossible(rk::utils::logError,
                                         [&] { return debugString() + ": Error resetting socket: " + failure.what(); });
    }
}

/// A request socket that has had no reply refuses to send, a reply socket that has sent none refuses to receive: a
/// fresh native socket does neither.
[[gnu::cold]] void Socket::repairJam() {
    rk::utils::logWarning(debugString() +
                          " Attempting reset of the connections to preserve 0MQ state machine integrity");
    resetConnections();
}

/// For a reply socket: a request that was received and never answered would keep it without input for ever. While a
/// reply is owed, and only then, 0MQ reports that the socket can send and cannot receive. False, with the reason in
/// `error`, when 0MQ cannot tell.
bool Socket::abandonUnansweredRequest(std::string& error) {
    if (zmqSocket == nullptr) {
        return true;
    }
    zmq_pollitem_t item{zmqSocket, 0, ZMQ_POLLIN | ZMQ_POLLOUT, 0};
    if (zmq_poll(&item, 1, 0) < 0) {
        error = pollFailure();
        return false;
    }
    if (item.revents == ZMQ_POLLOUT) {
        repairJam();
    }
    return true;
}

// Sending

void Socket::send(void* data, unsigned long size) {
    if (zmqSocket == nullptr) {
        refuseClosed("Socket: Cannot send on a NULL socket");
    }
    if (zmq_send(zmqSocket, data, size, 0) < 0) {
        sendAfterFailure(data, size);
    }
    if (statisticsActive) {
        addBlockToStatistics(static_cast<unsigned int>(size));
    }
    if (targetBitRate != 0) {
        handleBitRateCapping(static_cast<unsigned int>(size));
    }
}

/// Sends once more if the failure was a jam that can be repaired. What fails for good is counted all the same.
[[gnu::cold]] void Socket::sendAfterFailure(void* data, unsigned long size) {
    if (protocol == Protocol::Req && zmq_errno() == EFSM) {
        repairJam();
        if (zmq_send(zmqSocket, data, size, 0) >= 0) {
            return;
        }
    }
    if (statisticsActive) {
        addBlockToStatistics(static_cast<unsigned int>(size));
    }
    throwTransferFailure("send()", "Send error: ");
}

[[gnu::cold]] void Socket::throwTransferFailure(const char* operation, const char* prefix) const {
    const int error = zmq_errno();
    if (error == ETERM) {
        throw ZmqContextTerminationException(std::string("Context terminated in ") + operation + " for socket " +
                                             debugString());
    }
    throw std::runtime_error(prefix + failureText(error));
}

[[gnu::cold]] void Socket::refuse(std::string_view reason) const {
    throw std::runtime_error(debugString().append(reason));
}

void Socket::sendProtoBuf(google::protobuf::Message* message) {
    if (message == nullptr) {
        throw std::runtime_error("Socket: Cannot send NULL message");
    }
    if (!message->IsInitialized()) {
        refuseUninitialized(*message);
    }
    const std::size_t size = message->ByteSizeLong();
    if (size > INT_MAX) {
        refuseOversized(size);
    }
    // Not made by make_unique, which would write every byte twice.
    const std::unique_ptr<char[]> buffer(new char[size]);
    auto* const begin = reinterpret_cast<std::uint8_t*>(buffer.get());
    if (message->SerializeWithCachedSizesToArray(begin) != begin + size) {
        refuse(": Cannot send message: changed while being serialized");
    }
    send(buffer.get(), size);
}

[[gnu::cold]] void Socket::refuseUninitialized(const google::protobuf::Message& message) const {
    refuse(": Cannot send message: not initialized: " + missingFields(message));
}

[[gnu::cold]] void Socket::refuseOversized(std::size_t size) const {
    refuse(": Cannot send message: " + std::to_string(size) + " bytes serialized, at most " + std::to_string(INT_MAX) +
           " possible");
}

// Receiving

int Socket::receive(void* buffer, unsigned long size) {
    if (zmqSocket == nullptr) {
        refuseClosed("Socket: Cannot receive on a NULL socket");
    }
    int result = zmq_recv(zmqSocket, buffer, size, 0);
    if (result < 0) {
        result = receiveAfterFailure(buffer, size);
    }
    if (statisticsActive) {
        addBlockToStatistics(static_cast<unsigned int>(result));
    }
    return result;
}

/// Receives once more if the failure was a jam that can be repaired.
[[gnu::cold]] int Socket::receiveAfterFailure(void* buffer, unsigned long size) {
    int result = -1;
    if (protocol == Protocol::Rep && zmq_errno() == EFSM) {
        repairJam();
        result = zmq_recv(zmqSocket, buffer, size, 0);
    }
    if (result < 0) {
        throwTransferFailure("recv()", "Receive error: ");
    }
    return result;
}

void Socket::receiveProtoBuf(google::protobuf::Message* message, unsigned int size) {
    if (message == nullptr) {
        throw std::runtime_error("Socket: Cannot receive on a NULL message");
    }
    if (size == 0) {
        refuse(": Wrong receive buffer size");
    }
    if (size > receiveBufferSize) {
        receiveBuffer.reset(new char[size]);
        receiveBufferSize = size;
    }
    const int received = receive(receiveBuffer.get(), receiveBufferSize);
    if (received > static_cast<int>(receiveBufferSize)) {
        refuseTruncated(received);
    }
    if (!message->ParseFromArray(receiveBuffer.get(), received)) {
        refuse(": Failed deserializing message");
    }
}

[[gnu::cold]] void Socket::refuseTruncated(int received) const {
    refuse(": Receive buffer size too small: Required: " + std::to_string(received) +
           ", Actual: " + std::to_string(receiveBufferSize));
}

// Polling and draining

PollResult::PollResult Socket::poll(unsigned int timeout, std::string& error) {
    if (zmqSocket == nullptr) {
        throw std::runtime_error("Socket: Cannot poll a NULL socket");
    }
    zmq_pollitem_t item{zmqSocket, 0, ZMQ_POLLIN, 0};
    const int ready = zmq_poll(&item, 1, timeout);
    if (ready == 0) {
        return PollResult::Timeout;
    }
    if (ready < 0) {
        error = pollFailure();
        return PollResult::Failure;
    }
    if ((item.revents & ZMQ_POLLIN) != 0) {
        return PollResult::Input;
    }
    error = "Unexpected error in poll(). revents=" + std::to_string(item.revents) +
            " events=" + std::to_string(item.events) + " on " + debugString();
    return PollResult::Failure;
}

std::string Socket::pollFailure() const {
    const int error = zmq_errno();
    if (error == ETERM) {
        throw ZmqContextTerminationException("Context terminated in poll() for socket " + debugString());
    }
    return failureText(error);
}

void Socket::flushIncomingMessages() {
    if (protocol != Protocol::Sub) {
        return;
    }
    char discarded[100000];
    std::string ignored;
    while (poll(0, ignored) == PollResult::Input) {
        if (zmq_recv(zmqSocket, discarded, sizeof discarded, 0) < 0) {
            throwTransferFailure("recv()", "Receive error in flushIncomingMessages: ");
        }
    }
}

// Tuning and statistics

void Socket::setInternalFifoSize(int size) {
    if (protocol == Protocol::Pub || protocol == Protocol::Req) {
        setQueueSize(ZMQ_SNDHWM, size, "Failed setting emission buffer size: ");
    } else if (protocol == Protocol::Sub || protocol == Protocol::Rep) {
        setQueueSize(ZMQ_RCVHWM, size, "Failed setting reception buffer size: ");
    }
}

void Socket::setQueueSize(int option, int size, const char* failurePrefix) {
    if (zmq_setsockopt(zmqSocket, option, &size, sizeof size) < 0) {
        const int error = zmq_errno();
        rk::utils::detail::logIfPossible(rk::utils::logError,
                                         [&] { return formatMessage(failurePrefix + failureText(error)); });
    }
}

void Socket::activateStatistics(bool active) {
    statisticsActive = active;
    statisticsSampleCount = 0;
    statisticsByteCount = 0;
    statisticsBlockCount = 0;
}

void Socket::setTargetBitRate(unsigned int rate) {
    targetBitRate = rate;
}

void Socket::addBlockToStatistics(unsigned int size) noexcept {
    if (statisticsSampleCount == 0) {
        beginPeriod();
    }
    statisticsByteCount += size;
    ++statisticsBlockCount;
    ++statisticsSampleCount;
    if (statisticsSampleCount == blocksPerPeriod) {
        endPeriod();
    }
}

[[gnu::cold]] void Socket::beginPeriod() noexcept {
    const ErrnoKeeper keeper;
    statisticsStartTime = wallClockSeconds();
}

[[gnu::cold]] void Socket::endPeriod() noexcept {
    const ErrnoKeeper keeper;
    const double elapsed = wallClockSeconds() - statisticsStartTime;
    const double megabits = statisticsByteCount / elapsed * 0.0009765625 * 0.0009765625 * 8.0;
    const double megabytes = megabits * 0.125;
    const double blocks = statisticsBlockCount / elapsed;
    rk::utils::detail::logIfPossible(rk::utils::logDebug, [&] {
        return formatMessage("Rate is " + std::to_string(megabytes) + " Mbytes/s = " + std::to_string(megabits) +
                             " Mbits/s, " + std::to_string(blocks) + " Blocks/s");
    });
    statisticsStartTime = 0.0;
    statisticsByteCount = 0;
    statisticsBlockCount = 0;
    statisticsSampleCount = 0;
}

void Socket::handleBitRateCapping(unsigned int size) {
    if (targetBitRate == 0) {
        return;
    }
    const double now = wallClockSeconds();
    if (lastSendTime < 1.0) {
        lastSendTime = now;
        return;
    }
    const double due = lastSendTime + (size * 8.0) / (targetBitRate * 1024.0 * 1024.0);
    if (due > now) {
        // A clock that was set back makes the due time lie far ahead, further than a pause can be long.
        constexpr double longest = std::numeric_limits<useconds_t>::max();
        usleep(static_cast<useconds_t>(std::min((due - now) * 1000000.0, longest)));
    }
    lastSendTime = wallClockSeconds();
}

} // namespace rk::socket
