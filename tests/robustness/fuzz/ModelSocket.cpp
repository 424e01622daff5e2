#include "robustness/fuzz/ModelSocket.h"

#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace rk::tests {

using google::protobuf::Message;
using socket::SocketEndpoint;
using socket::TimeoutException;
using socket::ZmqContextTerminationException;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

namespace {

/// Shorter than the shortest time for which the bind of a released address is retried.
constexpr std::chrono::milliseconds leastPatience{40};

bool isTheSame(const SocketEndpoint& one, const SocketEndpoint& other) {
    const bool portsCount = one.transport == Transport::Tcp;
    return one.transport == other.transport && one.address == other.address && !(portsCount && one.port != other.port);
}

std::string withSixDigits(double number) {
    char text[400];
    std::snprintf(text, sizeof text, "%f", number);
    return text;
}

} // namespace

ModelSocket::ModelSocket(const std::string& socketName, int policy, Script& events, Addresses& addressBook)
    : name(socketName), closePolicy(policy), script(events), addresses(addressBook) {}

std::string ModelSocket::reason(int error) const {
    return std::string(zmq_strerror(error)) + " on " + debugString();
}

void ModelSocket::create(Protocol::Protocol pattern) {
    close();
    static const std::map<int, int> nativeTypes{
        {Protocol::Pub, ZMQ_PUB}, {Protocol::Sub, ZMQ_SUB}, {Protocol::Rep, ZMQ_REP}, {Protocol::Req, ZMQ_REQ}};
    const auto type = nativeTypes.find(pattern);
    const bool isKnown = type != nativeTypes.end();
    const Event& made = script.take("zmq_socket " + std::to_string(isKnown ? type->second : -1));
    require(isKnown || made.result == 0, "0MQ knows an unknown pattern");
    if (made.result == 0) {
        throw std::runtime_error("Socket: Failed creating socket " + debugString() + " of type " +
                                 std::to_string(static_cast<int>(pattern)) + ": " + reason(made.error));
    }
    native = made.result;
    protocol = pattern;
    turn = pattern == Protocol::Req ? Turn::Send : pattern == Protocol::Rep ? Turn::Receive : Turn::Either;
}

void ModelSocket::close() {
    closeNative();
    protocol = Protocol::Undef;
    connections.clear();
}

void ModelSocket::closeNative() {
    if (native == 0) {
        return;
    }
    call("zmq_close");
    for (auto& [address, holder] : addresses) {
        holder = holder == native ? 0 : holder;
    }
    native = 0;
}

void ModelSocket::connect(const SocketEndpoint& endpoint, unsigned int receiveTimeout) {
    if (native == 0) {
        throw std::runtime_error("Socket: Cannot connect a NULL socket");
    }
    for (const Connection& connection : connections) {
        if (isTheSame(connection.endpoint, endpoint)) {
            return;
        }
    }
    try {
        attach(endpoint, receiveTimeout);
    } catch (const std::runtime_error&) {
        close();
        throw;
    }
    connections.push_back({endpoint, receiveTimeout});
}

void ModelSocket::attach(const SocketEndpoint& endpoint, unsigned int receiveTimeout) {
    if (is(Protocol::Sub)) {
        closePolicy = 0;
    }
    const std::string address = textOf(endpoint);
    script.take("debug: Connecting " + debugString() + connectionPhrase() + address);
    if (binds()) {
        setLinger();
    }
    const int error = binds() ? bind(address) : call("zmq_connect " + address).error;
    if (error != 0) {
        throw std::runtime_error("Socket: Failed connecting/binding socket: " + reason(error));
    }
    if (binds() && endpoint.transport == Transport::Ipc) {
        script.take("chmod " + endpoint.address + " 511");
    }
    setOptions(receiveTimeout);
    script.take("debug: Connected " + debugString());
}

std::string ModelSocket::textOf(const SocketEndpoint& endpoint) const {
    switch (static_cast<int>(endpoint.transport)) {
    case 1:
        return "inproc://" + endpoint.address;
    case 2:
        return "ipc://" + endpoint.address;
    case 3:
        return "tcp://" + (binds() ? "*" : endpoint.address) + ":" + std::to_string(endpoint.port);
    default:
        return "Invalid " + std::to_string(static_cast<int>(endpoint.transport));
    }
}

std::string ModelSocket::connectionPhrase() const {
    if (is(Protocol::Sub)) {
        return ", subscribing to ";
    }
    return is(Protocol::Rep) ? ", listening on " : ", sending to ";
}

/// The bind of an address in use is retried if this process has released the address, and fails at once otherwise.
int ModelSocket::bind(const std::string& address) {
    const std::string line = "#" + std::to_string(native) + " zmq_bind " + address;
    Event bound = script.take(line);
    const auto entry = addresses.find(address);
    const bool isGivenUp = entry != addresses.end() && entry->second == 0;
    while (bound.error == EADDRINUSE && isGivenUp && script.goesOnWith(line)) {
        bound = script.take(line);
    }
    require(bound.error != EADDRINUSE || !isGivenUp || script.duration() > leastPatience,
            "an address that was given up is not waited for");
    if (bound.error == 0) {
        addresses[address] = native;
    }
    return bound.error;
}

void ModelSocket::setOptions(unsigned int receiveTimeout) {
    if (receiveTimeout != 0) {
        const int error = set(ZMQ_RCVTIMEO, std::to_string(static_cast<int>(receiveTimeout)));
        if (error != 0) {
            throw std::runtime_error("Socket: Error setting ZMQ_RCVTIMEO " + reason(error));
        }
    }
    if (is(Protocol::Sub)) {
        const int error = set(ZMQ_SUBSCRIBE, "none");
        if (error != 0) {
            throw std::runtime_error("Socket: Error setting ZMQ_SUBSCRIBE " + reason(error));
        }
    }
    setLinger();
}

void ModelSocket::setLinger() {
    set(ZMQ_LINGER, closePolicy == 0 ? "0" : closePolicy == 1 ? "2000" : "-1");
}

int ModelSocket::set(int option, const std::string& value) {
    return call("zmq_setsockopt " + std::to_string(option) + " = " + value).error;
}

void ModelSocket::createAndConnect(Protocol::Protocol pattern, const SocketEndpoint& endpoint,
                                   unsigned int receiveTimeout) {
    create(pattern);
    connect(endpoint, receiveTimeout);
}

void ModelSocket::resetConnections() {
    if (native == 0) {
        return;
    }
    const std::vector<Connection> recorded = connections;
    closeNative();
    try {
        create(protocol);
        for (const Connection& connection : recorded) {
            connect(connection.endpoint, connection.receiveTimeout);
        }
    } catch (const std::runtime_error& failure) {
        script.take("error: " + debugString() + ": Error resetting socket: " + failure.what());
    }
}

void ModelSocket::repair() {
    script.take("warning: " + debugString() +
                " Attempting reset of the connections to preserve 0MQ state machine integrity");
    resetConnections();
}

void ModelSocket::send(void* data, unsigned long size) {
    if (native == 0) {
        throw std::runtime_error("Socket: Cannot send on a NULL socket");
    }
    const std::string message(static_cast<const char*>(data), size);
    Event sent = sendOnce(message);
    if (sent.error == EFSM && is(Protocol::Req)) {
        repair();
        sent = sendOnce(message);
    }
    if (countsBlocks) {
        addBlockToStatistics(static_cast<unsigned int>(size));
    }
    if (sent.error != 0) {
        failTransfer("send()", "Send error: ", sent.error);
    }
    handleBitRateCapping(static_cast<unsigned int>(size));
}

/// Requires the result that matches the socket's turn, unless the result was injected.
Event ModelSocket::sendOnce(const std::string& message) {
    const Event& sent = call("zmq_send " + std::to_string(message.size()) + " bytes, flags 0");
    requireEqual(message, sent.bytes, "other bytes are sent");
    if (sent.isInjected) {
        return sent;
    }
    require((sent.error == EFSM) == (native != 0 && turn == Turn::Receive), "it was the other's turn to send");
    require((sent.error == ENOTSOCK) == (native == 0), "the socket is another than it was");
    require((sent.error == ENOTSUP) == is(Protocol::Sub), "a subscriber sends nothing");
    require(sent.error != EINTR || is(Protocol::Req), "none but a request waits for a peer");
    if (sent.error == 0 && turn == Turn::Send) {
        turn = Turn::Receive;
    }
    return sent;
}

void ModelSocket::failTransfer(const char* operation, const char* prefix, int error) const {
    if (error == ETERM) {
        throw ZmqContextTerminationException(std::string("Context terminated in ") + operation + " for socket " +
                                             debugString());
    }
    throw std::runtime_error(prefix + reason(error));
}

void ModelSocket::sendProtoBuf(Message* message) {
    if (message == nullptr) {
        throw std::runtime_error("Socket: Cannot send NULL message");
    }
    if (!message->IsInitialized()) {
        std::vector<std::string> fields;
        message->FindInitializationErrors(&fields);
        std::string text = debugString() + ": Cannot send message: not initialized: ";
        for (const std::string& field : fields) {
            text += "[" + field + "]";
        }
        throw std::runtime_error(text);
    }
    std::string serialized = message->SerializeAsString();
    send(serialized.data(), serialized.size());
}

int ModelSocket::receive(void* buffer, unsigned long size) {
    const Event received = receiveWithRepair(size);
    std::copy(received.bytes.begin(), received.bytes.end(), static_cast<char*>(buffer));
    return received.result;
}

Event ModelSocket::receiveWithRepair(unsigned long size) {
    if (native == 0) {
        throw std::runtime_error("Socket: Cannot receive on a NULL socket");
    }
    Event received = receiveOnce(size);
    if (received.error == EFSM && is(Protocol::Rep)) {
        repair();
        received = receiveOnce(size);
    }
    if (received.error == EAGAIN) {
        throw TimeoutException("Receive error: " + reason(EAGAIN));
    }
    if (received.error != 0) {
        failTransfer("recv()", "Receive error: ", received.error);
    }
    if (countsBlocks) {
        addBlockToStatistics(static_cast<unsigned int>(received.result));
    }
    return received;
}

Event ModelSocket::receiveOnce(unsigned long size) {
    const Event& received = call("zmq_recv " + std::to_string(size) + " bytes, flags 0");
    if (received.isInjected) {
        return received;
    }
    require((received.error == EFSM) == (native != 0 && turn == Turn::Send), "it was the other's turn to receive");
    require((received.error == ENOTSOCK) == (native == 0), "the socket is another than it was");
    require((received.error == ENOTSUP) == is(Protocol::Pub), "a publisher receives nothing");
    if (received.error == 0 && turn == Turn::Receive) {
        turn = Turn::Send;
    }
    return received;
}

void ModelSocket::receiveProtoBuf(Message* message, unsigned int size) {
    if (message == nullptr) {
        throw std::runtime_error("Socket: Cannot receive on a NULL message");
    }
    if (size == 0) {
        throw std::runtime_error(debugString() + ": Wrong receive buffer size");
    }
    bufferSize = std::max(bufferSize, size);
    const Event received = receiveWithRepair(bufferSize);
    const auto length = static_cast<unsigned int>(received.result);
    if (length > bufferSize) {
        throw std::runtime_error(debugString() + ": Receive buffer size too small: Required: " +
                                 std::to_string(length) + ", Actual: " + std::to_string(bufferSize));
    }
    if (!message->ParseFromString(received.bytes)) {
        throw std::runtime_error(debugString() + ": Failed deserializing message");
    }
}

int ModelSocket::poll(unsigned int timeout, std::string& error) {
    if (native == 0) {
        throw std::runtime_error("Socket: Cannot poll a NULL socket");
    }
    const auto milliseconds = std::min<std::int64_t>(timeout, std::numeric_limits<long>::max());
    const Event& polled = call("zmq_poll 1, " + std::to_string(milliseconds) + " ms");
    if (polled.error == ETERM) {
        throw ZmqContextTerminationException("Context terminated in poll() for socket " + debugString());
    }
    if (polled.error != 0) {
        error = reason(polled.error);
        return 2;
    }
    if (polled.isInjected) {
        error = "Unexpected error in poll(). revents=0 events=1 on " + debugString();
        return 2;
    }
    require(polled.result == 0 || (turn != Turn::Send && !is(Protocol::Pub)), "there is input out of turn");
    return polled.result == 0 ? 1 : 0;
}

void ModelSocket::flushIncomingMessages() {
    if (!is(Protocol::Sub)) {
        return;
    }
    std::string ignored;
    while (poll(0, ignored) == 0) {
        const Event& received = call("zmq_recv 100000 bytes, flags 0");
        require(received.isInjected || received.error == 0, "there was input");
        if (received.error != 0) {
            failTransfer("recv()", "Receive error in flushIncomingMessages: ", received.error);
        }
    }
}

void ModelSocket::setInternalFifoSize(int size) {
    if (native == 0) {
        return;
    }
    const bool isSender = is(Protocol::Pub) || is(Protocol::Req);
    const int error = call("zmq_setsockopt " + std::to_string(isSender ? 23 : 24) + " = " + std::to_string(size)).error;
    if (error != 0) {
        script.take("error: " + debugString() + ": Failed setting " + (isSender ? "emission" : "reception") +
                    " buffer size: " + reason(error));
    }
}

void ModelSocket::activateStatistics(bool active) {
    countsBlocks = active;
    blocks = 0;
    bytes = 0;
}

double ModelSocket::readClock() {
    const std::int64_t now = script.take("gettimeofday").value;
    return static_cast<double>(now / 1000000) + static_cast<double>(now % 1000000) / 1000000.0;
}

void ModelSocket::addBlockToStatistics(unsigned int size) {
    if (blocks == 0) {
        periodBegan = readClock();
    }
    ++blocks;
    bytes += size;
    if (blocks == 50) {
        const double elapsed = readClock() - periodBegan;
        const double megabits = bytes / elapsed * 0.0009765625 * 0.0009765625 * 8.0;
        script.take("debug: " + debugString() + ": Rate is " + withSixDigits(megabits * 0.125) + " Mbytes/s = " +
                    withSixDigits(megabits) + " Mbits/s, " + withSixDigits(50 / elapsed) + " Blocks/s");
        blocks = 0;
        bytes = 0;
    }
}

void ModelSocket::handleBitRateCapping(unsigned int size) {
    if (bitRate == 0) {
        return;
    }
    const double now = readClock();
    if (lastSend < 1.0) {
        lastSend = now;
        return;
    }
    const double early = lastSend + size * 8.0 / (bitRate * 1048576.0) - now;
    if (early > 0.0) {
        auto left = static_cast<std::uint64_t>(early * 1000000.0);
        while (left > 4294967295U) {
            script.take("usleep 4294967295");
            left -= 4294967295U;
        }
        script.take("usleep " + std::to_string(left));
    }
    lastSend = readClock();
}

} // namespace rk::tests
