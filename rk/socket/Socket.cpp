#include <rk/detail/LogIfPossible.h>
#include <rk/socket/Socket.h>
#include <rk/socket/SocketContext.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/detail/AddressBook.h>
#include <rk/socket/detail/Attachment.h>
#include <rk/socket/detail/BoundAddresses.h>
#include <rk/socket/detail/Failures.h>
#include <rk/socket/detail/NetworkSettings.h>
#include <rk/socket/detail/Pattern.h>
#include <rk/utils/Log.h>

#include <google/protobuf/message.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>

namespace rk::socket {

namespace {

using detail::failureText;
using detail::refuseOversized;
using detail::refuseUninitialized;
using detail::refuseUnparsed;
using detail::throwTerminated;
using detail::throwTransferFailure;

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

/// Best effort: a refused linger time leaves the socket usable.
void setLinger(void* zmqSocket, ClosePolicy::ClosePolicy policy) {
    const int linger = lingerMilliseconds(policy);
    zmq_setsockopt(zmqSocket, ZMQ_LINGER, &linger, sizeof linger);
}

[[noreturn, gnu::cold, gnu::noinline]] void refuse(const std::string& reason) {
    throw std::runtime_error(reason);
}

[[noreturn, gnu::cold, gnu::noinline]] void refuse(const char* reason) {
    throw std::runtime_error(reason);
}

[[noreturn, gnu::cold, gnu::noinline]] void refuse(const std::string& header, const char* reason) {
    throw std::runtime_error(header + reason);
}

[[noreturn, gnu::cold, gnu::noinline]] void throwReceiveFailure(const std::string& header) {
    const char* const prefix = "Receive error: ";
    if (zmq_errno() == EAGAIN) {
        throw TimeoutException(prefix + failureText(EAGAIN, header));
    }
    throwTransferFailure("recv()", prefix, header);
}

std::string pollFailure(const std::string& header) {
    const int error = zmq_errno();
    if (error == ETERM) {
        throwTerminated("poll()", header);
    }
    return failureText(error, header);
}

[[noreturn, gnu::cold, gnu::noinline]] void refuseTruncated(int received, std::uint32_t bufferSize,
                                                            const std::string& header) {
    refuse(header + ": Receive buffer size too small: Required: " + std::to_string(received) +
           ", Actual: " + std::to_string(bufferSize));
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
    const std::optional<int> queueSize = detail::NetworkSettings::ofProcess().queueSize;
    zmqSocket = getSocket(newProtocol);
    if (zmqSocket == nullptr) {
        const int error = zmq_errno();
        refuse("Socket: Failed creating socket " + header + " of type " + std::to_string(newProtocol) + ": " +
               failureText(error, header));
    }
    protocol = newProtocol;
    if (queueSize) {
        // Not in `connect`: libzmq 4.3.4 may crash when a queue size changes while a peer disconnects.
        setQueueSize(ZMQ_SNDHWM, *queueSize, "Failed setting emission buffer size: ");
        setQueueSize(ZMQ_RCVHWM, *queueSize, "Failed setting reception buffer size: ");
    }
}

void Socket::close() {
    closeNativeSocket();
    const std::lock_guard<std::mutex> lock(connectionMutex);
    protocol = Protocol::Undef;
    endpoint = SocketEndpoint();
    receiveTimeoutText = "undef";
    connections.clear();
    if (boundAddresses) {
        boundAddresses->clear();
    }
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

SocketEndpoint Socket::lastEndpoint() const {
    const std::lock_guard<std::mutex> lock(connectionMutex);
    return endpoint;
}

// Connecting

void Socket::connect(const SocketEndpoint& target, unsigned int receiveTimeout) {
    if (zmqSocket == nullptr) {
        refuse("Socket: Cannot connect a NULL socket");
    }
    try {
        if (!connections.contains(target)) {
            attach(target, receiveTimeout);
        }
    } catch (...) {
        close();
        throw;
    }
}

void Socket::attach(const SocketEndpoint& target, unsigned int receiveTimeout) {
    if (protocol == Protocol::Sub) {
        closePolicy = ClosePolicy::DropPending;
    }
    detail::Attachment attachment(protocol, target, header);
    rk::utils::logDebug("Connecting " + header + connectionPhrase(protocol) + attachment.text());
    if (detail::binds(protocol)) {
        // ZeroMQ ends accepted connections with the linger time that the socket had when it was bound.
        setLinger(zmqSocket, closePolicy);
    }
    bindOrConnect(attachment);
    if (target.transport == Transport::Ipc && detail::binds(protocol)) {
        // Let any user connect. Best effort: chmod fails if we do not own the file.
        static_cast<void>(chmod(target.address.c_str(), 0777));
    }
    setOptions(receiveTimeout);
    remember(target, receiveTimeout, attachment);
    rk::utils::logDebug("Connected " + header);
}

void Socket::bindOrConnect(detail::Attachment& attachment) {
    if (detail::connects(protocol)) {
        attachment.connect(zmqSocket);
        return;
    }
    if (!detail::binds(protocol)) {
        refuse("Socket: Socket type not handled");
    }
    attachment.bind(zmqSocket);
}

void Socket::setOptions(unsigned int receiveTimeout) {
    if (receiveTimeout != 0) {
        const int milliseconds = static_cast<int>(receiveTimeout);
        if (zmq_setsockopt(zmqSocket, ZMQ_RCVTIMEO, &milliseconds, sizeof milliseconds) < 0) {
            const int error = zmq_errno();
            refuse("Socket: Error setting ZMQ_RCVTIMEO " + failureText(error, header));
        }
    }
    if (protocol == Protocol::Sub && zmq_setsockopt(zmqSocket, ZMQ_SUBSCRIBE, nullptr, 0) < 0) {
        const int error = zmq_errno();
        refuse("Socket: Error setting ZMQ_SUBSCRIBE " + failureText(error, header));
    }
    setLinger(zmqSocket, closePolicy);
}

void Socket::remember(const SocketEndpoint& target, unsigned int receiveTimeout, const detail::Attachment& attachment) {
    {
        const std::lock_guard<std::mutex> lock(connectionMutex);
        endpoint = attachment.addresses().front();
        endpoint.address = target.transport == Transport::Tcp ? target.address : endpoint.address;
        receiveTimeoutText = std::to_string(receiveTimeout);
        if (boundAddresses && detail::binds(protocol)) {
            for (const SocketEndpoint& address : attachment.addresses()) {
                boundAddresses->add(address, attachment.credentials());
            }
        }
    }
    connections.add(target, receiveTimeout);
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
    try {
        rebuild();
    } catch (const std::exception& failure) {
        protocol = Protocol::Undef; // still set if `close` could not take its lock
        rk::detail::logIfPossible(rk::utils::logError,
                                  [&] { return header + ": Error resetting socket: " + failure.what(); });
    } catch (...) {
        // Explicit, because GCC 14 miscompiles the implicit call for an exception that the handler above does not
        // catch.
        std::terminate();
    }
}

void Socket::rebuild() {
    const Connections recorded = std::exchange(connections, {});
    create(protocol);
    for (const auto& [target, receiveTimeout] : recorded) {
        connect(target, receiveTimeout);
    }
}

/// Makes the connections of a subscribe socket again. Does not rebuild it, because the process may have no native
/// socket left. ZeroMQ ignores a second connect to an endpoint, so each is disconnected first. Skips inproc: it cannot
/// lose a network, and each connect to an unbound name uses up a native socket. Best effort: the next call includes
/// endpoints that fail in this one.
void Socket::reconnect() {
    for (const auto& [target, receiveTimeout] : connections) {
        try {
            if (target.transport != Transport::Inproc) {
                zmq_disconnect(zmqSocket, target.toString(protocol).c_str());
                detail::Attachment(protocol, target, header).connect(zmqSocket);
            }
        } catch (const std::exception&) {
            // An endpoint whose key is no longer trusted must not keep the others disconnected.
        }
    }
}

/// Replaces the native socket after ZeroMQ has rejected a call that is out of turn: a request socket that sends before
/// it has received a reply, or a reply socket that receives before it has replied.
[[gnu::cold]] void Socket::repairJam() {
    rk::utils::logWarning(header + " Attempting reset of the connections to preserve 0MQ state machine integrity");
    resetConnections();
}

/// Repairs a reply socket that still owes a reply. Such a socket never reports input, so the listener would wait
/// forever. It is recognized by its events: it can send and cannot receive. Returns false, with the reason in `error`,
/// if the poll fails.
bool Socket::abandonUnansweredRequest(std::string& error) {
    if (zmqSocket == nullptr) {
        return true;
    }
    zmq_pollitem_t item{zmqSocket, 0, ZMQ_POLLIN | ZMQ_POLLOUT, 0};
    if (zmq_poll(&item, 1, 0) < 0) {
        error = pollFailure(header);
        return false;
    }
    if (item.revents == ZMQ_POLLOUT) {
        repairJam();
    }
    return true;
}

// Sending

void Socket::send(void* data, unsigned long size) {
    sendBytes(data, size);
}

/// Inlined into `send` and `sendProtoBuf`, so that neither pays for a function call.
[[gnu::always_inline]] inline void Socket::sendBytes(const void* data, std::size_t size) {
    if (zmqSocket == nullptr) {
        refuse("Socket: Cannot send on a NULL socket");
    }
    if (zmq_send(zmqSocket, data, size, 0) < 0) {
        sendAfterFailure(data, size);
    }
    if (statistics.areActive()) {
        addBlockToStatistics(static_cast<unsigned int>(size));
    }
    if (rateCap.isSet()) {
        handleBitRateCapping(static_cast<unsigned int>(size));
    }
}

/// Retries if the failure was a jam. The statistics count the block even if it cannot be sent.
[[gnu::cold]] void Socket::sendAfterFailure(const void* data, std::size_t size) {
    if (protocol == Protocol::Req && zmq_errno() == EFSM) {
        repairJam();
        if (zmq_send(zmqSocket, data, size, 0) >= 0) {
            return;
        }
    }
    if (statistics.areActive()) {
        addBlockToStatistics(static_cast<unsigned int>(size));
    }
    throwTransferFailure("send()", "Send error: ", header);
}

void Socket::sendProtoBuf(google::protobuf::Message* message) {
    if (message == nullptr) {
        refuse("Socket: Cannot send NULL message");
    }
    if (!message->IsInitialized()) {
        refuseUninitialized(*message, header);
    }
    const std::size_t size = message->ByteSizeLong();
    if (size > INT_MAX) {
        refuseOversized(size, header);
    }
    // Not make_unique, which would zero every byte before it is written.
    const std::unique_ptr<char[]> buffer(new char[size]);
    auto* const begin = reinterpret_cast<std::uint8_t*>(buffer.get());
    if (message->SerializeWithCachedSizesToArray(begin) != begin + size) {
        refuse(header, ": Cannot send message: changed while being serialized");
    }
    sendBytes(buffer.get(), size);
}

// Receiving

int Socket::receive(void* buffer, unsigned long size) {
    if (zmqSocket == nullptr) {
        refuse("Socket: Cannot receive on a NULL socket");
    }
    int result = zmq_recv(zmqSocket, buffer, size, 0);
    if (result < 0) {
        result = receiveAfterFailure(buffer, size);
    }
    if (statistics.areActive()) {
        addBlockToStatistics(static_cast<unsigned int>(result));
    }
    return result;
}

/// Retries if the failure was a jam.
[[gnu::cold]] int Socket::receiveAfterFailure(void* buffer, std::size_t size) {
    if (protocol == Protocol::Rep && zmq_errno() == EFSM) {
        repairJam();
        const int result = zmq_recv(zmqSocket, buffer, size, 0);
        if (result >= 0) {
            return result;
        }
    }
    throwReceiveFailure(header);
}

void Socket::receiveProtoBuf(google::protobuf::Message* message, unsigned int size) {
    if (message == nullptr) {
        refuse("Socket: Cannot receive on a NULL message");
    }
    if (size == 0) {
        refuse(header, ": Wrong receive buffer size");
    }
    if (size > receiveBufferSize) {
        receiveBuffer.reset(new char[size]);
        receiveBufferSize = size;
    }
    const int received = receive(receiveBuffer.get(), receiveBufferSize);
    if (received > static_cast<int>(receiveBufferSize)) {
        refuseTruncated(received, receiveBufferSize, header);
    }
    if (!message->ParseFromArray(receiveBuffer.get(), received)) {
        refuseUnparsed(header);
    }
}

// Polling and draining

PollResult::PollResult Socket::poll(unsigned int timeout, std::string& error) {
    if (zmqSocket == nullptr) {
        refuse("Socket: Cannot poll a NULL socket");
    }
    zmq_pollitem_t item{zmqSocket, 0, ZMQ_POLLIN, 0};
    // A longer timeout would be negative where a long has 32 bits, and ZeroMQ would wait forever.
    const auto milliseconds = std::min<std::int64_t>(timeout, std::numeric_limits<long>::max());
    const int ready = zmq_poll(&item, 1, static_cast<long>(milliseconds));
    if (ready < 0) {
        error = pollFailure(header);
        return PollResult::Failure;
    }
    if (ready == 0) {
        return PollResult::Timeout;
    }
    if ((item.revents & ZMQ_POLLIN) != 0) {
        return PollResult::Input;
    }
    error = "Unexpected error in poll(). revents=" + std::to_string(item.revents) +
            " events=" + std::to_string(item.events) + " on " + header;
    return PollResult::Failure;
}

void Socket::flushIncomingMessages() {
    if (protocol != Protocol::Sub) {
        return;
    }
    constexpr std::size_t size = 100000;
    std::unique_ptr<char[]> discarded; // on the heap, because a thread's stack may be smaller
    std::string ignored;
    while (poll(0, ignored) == PollResult::Input) {
        if (!discarded) {
            discarded.reset(new char[size]);
        }
        if (zmq_recv(zmqSocket, discarded.get(), size, 0) < 0) {
            throwTransferFailure("recv()", "Receive error in flushIncomingMessages: ", header);
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
        rk::detail::logIfPossible(rk::utils::logError,
                                  [&] { return formatMessage(failurePrefix + failureText(error, header)); });
    }
}

void Socket::activateStatistics(bool active) {
    statistics.activate(active);
}

void Socket::setTargetBitRate(unsigned int rate) {
    rateCap.set(rate);
}

void Socket::addBlockToStatistics(unsigned int size) noexcept {
    statistics.add(size, *this);
}

void Socket::handleBitRateCapping(unsigned int size) {
    if (rateCap.isSet()) {
        rateCap.pauseAfter(size);
    }
}

} // namespace rk::socket
