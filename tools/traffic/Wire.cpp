#include "traffic/Wire.h"

#include "display/Complaints.h"
#include "system/StopSignals.h"
#include "traffic/Context.h"
#include "traffic/Endpoint.h"
#include "traffic/Frames.h"
#include "traffic/Probe.h"

#include <rk/utils/Log.h>

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <netdb.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::tools {

namespace {

namespace ClosePolicies = rk::socket::ClosePolicy;
using rk::socket::Transport::Ipc;
using rk::socket::Transport::Tcp;

constexpr int sendSlice = 100; // milliseconds, between looks at the deadline

// What is longer than this and longer than wanted is refused by ZeroMQ before memory is allocated, which costs the
// connection. What is not is received and left out.
constexpr std::size_t leastLimit = 1024UL * 1024;

// ZeroMQ counts what encryption adds, and applies the limit to the handshake.
constexpr std::int64_t leastEncrypted = 512;
constexpr std::int64_t addedByEncryption = 33;

struct Role {
    int type;
    bool binds;
    const char* phrase;
};

Role roleOf(Pattern pattern) {
    switch (pattern) {
    case Pattern::Publish:
        return {ZMQ_PUB, true, ", sending to "};
    case Pattern::Subscribe:
        return {ZMQ_SUB, false, ", subscribing to "};
    case Pattern::Request:
        return {ZMQ_REQ, false, ", sending to "};
    case Pattern::Reply:
        return {ZMQ_REP, true, ", listening on "};
    case Pattern::Push:
        return {ZMQ_PUSH, true, ", sending to "};
    case Pattern::Pull:
        break;
    }
    return {ZMQ_PULL, false, ", receiving from "};
}

bool receives(Pattern pattern) {
    return pattern == Pattern::Subscribe || pattern == Pattern::Pull || pattern == Pattern::Reply;
}

int lingerOf(ClosePolicies::ClosePolicy policy) {
    return policy == ClosePolicies::DropPending ? 0 : policy == ClosePolicies::LingerTwoSeconds ? 2000 : -1;
}

} // namespace

Wire::Wire(Context& zmqContext, Pattern pattern, const std::string& endpoint, const SocketSettings& settingsToUse,
           const StopSignals& stopSignals, const Complaints& complaintsToUse)
    : context(zmqContext),
      role(pattern),
      address(endpoint),
      target(endpointFromText(endpoint)),
      settings(settingsToUse),
      stop(stopSignals),
      complaints(complaintsToUse) {}

Wire::~Wire() {
    close(ClosePolicies::DropPending);
}

bool Wire::binds() const {
    return settings.binds.value_or(roleOf(role).binds);
}

std::string Wire::debugString() const {
    return "[Socket " + address + "]";
}

void Wire::refuse(const std::string& action) const {
    throw std::runtime_error("cannot " + action + " " + address + ": " + zmq_strerror(zmq_errno()));
}

void Wire::set(int option, int value) {
    if (zmq_setsockopt(socket, option, &value, sizeof value) != 0) {
        refuse("set option " + std::to_string(option) + " of");
    }
}

void Wire::open(Subscriptions wanted) {
    create(wanted);
    attach();
}

void Wire::create(Subscriptions wanted) {
    counts = wanted == Subscriptions::Counted;
    socket = zmq_socket(context.native(), counts ? ZMQ_XPUB : roleOf(role).type);
    if (socket == nullptr) {
        refuse("make a socket for");
    }
    const auto limit = static_cast<std::int64_t>(std::max(settings.maxSize, leastLimit));
    std::int64_t given = binds() ? settings.maxMessageSize.value_or(limit) : limit;
    if (context.keys() != nullptr) {
        given =
            std::max(std::min(given, std::numeric_limits<std::int64_t>::max() - addedByEncryption) + addedByEncryption,
                     leastEncrypted);
    }
    zmq_setsockopt(socket, ZMQ_MAXMSGSIZE, &given, sizeof given);
    setNetwork();
    set(ZMQ_SNDTIMEO, sendSlice);
    if (settings.fifo) {
        set(receives(role) ? ZMQ_RCVHWM : ZMQ_SNDHWM, *settings.fifo);
    }
    if (role == Pattern::Publish) {
        set(ZMQ_XPUB_NODROP, 1);
    }
    if (counts) {
        set(ZMQ_XPUB_VERBOSE, 1);
    }
    if (role == Pattern::Subscribe) {
        for (const std::string& topic : settings.topics) {
            zmq_setsockopt(socket, ZMQ_SUBSCRIBE, topic.data(), topic.size());
        }
        if (settings.topics.empty()) {
            zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0);
        }
    }
}

void Wire::attach() {
    const std::string place =
        binds() && target.transport == Tcp ? "tcp://" + listenAddress() + ":" + std::to_string(target.port) : address;
    rk::utils::logDebug("Connecting " + debugString() + roleOf(role).phrase + place);
    if (binds()) {
        bind();
    } else {
        peer = std::make_unique<Connection>(context, socket);
    }
    context.secure(socket, target, binds());
    const int result = binds() ? zmq_bind(socket, place.c_str()) : zmq_connect(socket, place.c_str());
    if (result != 0) {
        refuse(binds() ? "listen on" : "connect to");
    }
    struct stat status = {};
    if (binds() && target.transport == Ipc && ::stat(target.address.c_str(), &status) == 0) {
        file = status.st_ino;
        // Let any user connect. Best effort: chmod fails if we do not own the file.
        static_cast<void>(::chmod(target.address.c_str(), 0777));
    }
    rk::utils::logDebug("Connected " + debugString());
}

void Wire::setNetwork() {
    if (settings.ipv6) {
        set(ZMQ_IPV6, 1);
    }
    if (!settings.peerTimeout) {
        return;
    }
    // Several probes, so that a lost packet does not end a connection.
    const int total = std::max(2, static_cast<int>(settings.peerTimeout->count()));
    const int interval = std::max(1, total / 6);
    const int probes = std::min(4, total - 1);
    set(ZMQ_TCP_KEEPALIVE, 1);
    set(ZMQ_TCP_KEEPALIVE_IDLE, total - interval * probes);
    set(ZMQ_TCP_KEEPALIVE_INTVL, interval);
    set(ZMQ_TCP_KEEPALIVE_CNT, probes);
    if (!binds()) {
        set(ZMQ_CONNECT_TIMEOUT, std::min(total, 5) * 1000);
    }
}

/// A name as a number, because ZeroMQ resolves none for binding. It knows interfaces.
std::string Wire::listenAddress() const {
    addrinfo hints{};
    hints.ai_family = settings.ipv6 ? AF_UNSPEC : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (settings.listenOn == "*" || getaddrinfo(settings.listenOn.c_str(), nullptr, &hints, &found) != 0) {
        return settings.listenOn;
    }
    std::array<char, NI_MAXHOST> text{};
    const int family = found->ai_family;
    const int result =
        getnameinfo(found->ai_addr, found->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    freeaddrinfo(found);
    if (result != 0) {
        return settings.listenOn;
    }
    return family == AF_INET6 ? "[" + std::string(text.data()) + "]" : text.data();
}

void Wire::bind() {
    struct stat status = {};
    if (target.transport == Ipc && ::lstat(target.address.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
        // ZeroMQ would delete it.
        throw std::runtime_error("cannot listen on " + address + ": the file exists and is no socket");
    }
    const std::string& host = target.address;
    if (target.transport == Tcp && settings.listenOn == "*" && host != "*" && host != "0.0.0.0") {
        complaints.remark(address + ": listening on all interfaces, the host '" + host + "' is ignored");
    }
}

void Wire::close(ClosePolicy policy) {
    if (socket == nullptr) {
        return;
    }
    reportRefusals();
    const int linger = lingerOf(policy);
    zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
    if (peer) {
        zmq_socket_monitor(socket, nullptr, 0);
        peer.reset();
    }
    zmq_close(socket);
    socket = nullptr;
    removeFile();
}

void Wire::removeFile() {
    struct stat status = {};
    if (file && ::stat(target.address.c_str(), &status) == 0 && status.st_ino == *file) {
        ::unlink(target.address.c_str());
    }
    file.reset();
}

void Wire::reconnect() {
    close(ClosePolicies::DropPending);
    open();
}

bool Wire::send(const Parts& message, Connection::Clock::time_point deadline) {
    takeSubscriptions();
    return sendParts(message, 0, deadline);
}

bool Wire::sendWithoutWaiting(const Parts& message) {
    takeSubscriptions();
    if (sendParts(message, ZMQ_DONTWAIT, Connection::Clock::time_point::min())) {
        return true;
    }
    if (role == Pattern::Publish) {
        set(ZMQ_XPUB_NODROP, 0);
        sendParts(message, ZMQ_DONTWAIT, Connection::Clock::time_point::min());
        set(ZMQ_XPUB_NODROP, 1);
    }
    return false;
}

bool Wire::sendParts(const Parts& message, int flags, Connection::Clock::time_point deadline) {
    std::size_t sent = 0;
    while (sent < message.size()) {
        const std::string& part = message[sent];
        const int more = sent + 1 < message.size() ? ZMQ_SNDMORE : 0;
        if (zmq_send(socket, part.data(), part.size(), flags | more) >= 0) {
            ++sent;
        } else if (zmq_errno() != EAGAIN && zmq_errno() != EINTR) {
            refuse("send to");
        } else if (stop.requested() || Connection::Clock::now() >= deadline) {
            return false;
        }
    }
    return true;
}

bool Wire::receive(Frames& frames) {
    if (frames.receiveFrom(socket)) {
        return true;
    }
    // A request socket that owes a request, or a reply socket that owes a reply, has nothing to receive.
    if (zmq_errno() != EAGAIN && zmq_errno() != EINTR && zmq_errno() != EFSM) {
        refuse("receive from");
    }
    return false;
}

std::optional<std::string> Wire::trouble() const {
    return binds() ? std::nullopt : troubleAt(address, role, context.keys(), stop);
}

void Wire::reportRefusals() const {
    context.reportRefusals(complaints);
}

void Wire::takeSubscriptions() {
    if (!counts) {
        return;
    }
    Frames frames;
    while (frames.receiveFrom(socket)) {
        subscriptions += !frames.parts()[0].empty() && frames.parts()[0].front() == '\1' ? 1U : 0U;
    }
}

bool Wire::awaitSubscriptions(std::uint64_t number) {
    takeSubscriptions();
    while (subscriptions < number && !stop.requested()) {
        std::array<zmq_pollitem_t, 2> items = {
            {{socket, 0, ZMQ_POLLIN, 0}, {nullptr, stop.descriptor(), ZMQ_POLLIN, 0}}};
        zmq_poll(items.data(), static_cast<int>(items.size()), 250);
        reportRefusals();
        takeSubscriptions();
    }
    return !stop.requested();
}

} // namespace rk::tools
