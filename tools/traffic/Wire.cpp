#include "traffic/Wire.h"

#include "display/Complaints.h"
#include "system/StopSignals.h"
#include "traffic/Context.h"
#include "traffic/Frames.h"
#include "traffic/Probe.h"

#include <rk/socket/detail/ListenAddresses.h>
#include <rk/utils/Log.h>

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::tools {

namespace {

namespace ClosePolicies = rk::socket::ClosePolicy;
using rk::socket::detail::listenAddresses;
using rk::socket::Transport::Ipc;

constexpr std::chrono::milliseconds probeLimit{500};
constexpr int sendSlice = 100; // milliseconds between looks at the deadline

// ZeroMQ drops the connection of a peer that sends more than this and more than the user wants, before it allocates
// memory. Shorter messages are received, and left out if the user wants none of their size.
constexpr std::size_t leastLimit = 1024UL * 1024;
constexpr std::int64_t addedByEncryption = 33; // bytes of a frame, which ZeroMQ counts

std::int64_t frameLimit(const SocketSettings& settings) {
    return static_cast<std::int64_t>(std::max(settings.maxSize, leastLimit)) + addedByEncryption;
}

int lingerOf(ClosePolicies::ClosePolicy policy) {
    return policy == ClosePolicies::DropPending ? 0 : policy == ClosePolicies::LingerTwoSeconds ? 2000 : -1;
}

} // namespace

Wire::Wire(Context& zmqContext, const Pattern& patternToPlay, const std::string& endpoint,
           const SocketSettings& settingsToUse, const StopSignals& stopSignals, const Complaints& complaintsToUse)
    : context(zmqContext),
      pattern(patternToPlay),
      address(endpoint),
      target(rk::socket::SocketEndpoint::FromString(endpoint)),
      settings(settingsToUse),
      network(settings.network),
      stop(stopSignals),
      complaints(complaintsToUse) {
    network.maxMessageSize = network.maxMessageSize.value_or(frameLimit(settings));
}

Wire::~Wire() {
    close(ClosePolicies::DropPending);
}

bool Wire::binds() const {
    return settings.binds.value_or(pattern.binds);
}

void Wire::refuse(const std::string& action) const {
    throw std::runtime_error("cannot " + action + " " + address + ": " + zmq_strerror(zmq_errno()));
}

void Wire::set(int option, int value) {
    if (zmq_setsockopt(socket, option, &value, sizeof value) != 0) {
        refuse("set option " + std::to_string(option) + " of");
    }
}

void Wire::open() {
    create();
    rk::utils::logDebug("Connecting [Socket " + address + "], " + pattern.purpose + " " + address);
    if (binds()) {
        bind();
    } else {
        connect();
    }
    rk::utils::logDebug("Connected [Socket " + address + "]");
    awaitSubscriptions();
}

void Wire::create() {
    socket = zmq_socket(context.native(), settings.subscriptions ? ZMQ_XPUB : pattern.type);
    if (socket == nullptr) {
        refuse("make a socket for");
    }
    const std::int64_t limit = frameLimit(settings);
    zmq_setsockopt(socket, ZMQ_MAXMSGSIZE, &limit, sizeof limit);
    set(ZMQ_SNDTIMEO, sendSlice);
    if (settings.fifo) {
        set(pattern.receives ? ZMQ_RCVHWM : ZMQ_SNDHWM, *settings.fifo);
    }
    if (pattern.type == ZMQ_PUB) {
        set(ZMQ_XPUB_NODROP, 1);
    }
    if (settings.subscriptions) {
        set(ZMQ_XPUB_VERBOSE, 1);
    }
    if (pattern.type == ZMQ_SUB) {
        subscribe();
    }
}

void Wire::subscribe() {
    const std::vector<std::string> everything = {""};
    for (const std::string& topic : settings.topics.empty() ? everything : settings.topics) {
        zmq_setsockopt(socket, ZMQ_SUBSCRIBE, topic.data(), topic.size());
    }
}

void Wire::connect() {
    peer = std::make_unique<Connection>(context, socket);
    attachTo(target);
}

void Wire::bind() {
    context.admitClients();
    if (target.transport != Ipc) {
        if (network.listenHost == "*" && target.address != "*" && target.address != "0.0.0.0") {
            complaints.remark(address + ": listening on all interfaces, the host '" + target.address + "' is ignored");
        }
        for (const std::string& host : listenAddresses(network.listenHost, network.ipv6.value_or(false))) {
            attachTo({target.transport, host, target.port});
        }
        return;
    }
    struct stat status = {};
    if (::lstat(target.address.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
        // ZeroMQ would delete it.
        throw std::runtime_error("cannot listen on " + address + ": the file exists and is no socket");
    }
    attachTo(target);
    if (::stat(target.address.c_str(), &status) == 0) {
        file = status.st_ino;
        // Let any user connect. Best effort: chmod fails if we do not own the file.
        static_cast<void>(::chmod(target.address.c_str(), 0777));
    }
}

void Wire::attachTo(const rk::socket::SocketEndpoint& place) {
    setOptions(socket, binds(), place, network, context.keys());
    const std::string text = place.toString(rk::socket::Protocol::Undef);
    if ((binds() ? zmq_bind : zmq_connect)(socket, text.c_str()) != 0) {
        refuse(binds() ? "listen on" : "connect to");
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

bool Wire::send(const Parts& message, Clock::time_point deadline) {
    takeSubscriptions();
    return sendParts(message, 0, deadline);
}

bool Wire::sendWithoutWaiting(const Parts& message) {
    takeSubscriptions();
    if (sendParts(message, ZMQ_DONTWAIT, Clock::time_point::min())) {
        return true;
    }
    if (pattern.type == ZMQ_PUB) {
        set(ZMQ_XPUB_NODROP, 0);
        sendParts(message, ZMQ_DONTWAIT, Clock::time_point::min());
        set(ZMQ_XPUB_NODROP, 1);
    }
    return false;
}

bool Wire::sendParts(const Parts& message, int flags, Clock::time_point deadline) {
    std::size_t sent = 0;
    while (sent < message.size()) {
        const std::string& part = message[sent];
        const int more = sent + 1 < message.size() ? ZMQ_SNDMORE : 0;
        if (zmq_send(socket, part.data(), part.size(), flags | more) >= 0) {
            ++sent;
        } else if (zmq_errno() != EAGAIN && zmq_errno() != EINTR) {
            refuse("send to");
        } else if (stop.requested() || Clock::now() >= deadline) {
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
    return troubleOf(probe(target, context.keys(), {probeLimit, network.ipv6.value_or(false), stop}), pattern);
}

void Wire::reportRefusals() const {
    context.reportRefusals(complaints);
}

void Wire::takeSubscriptions() {
    Frames frames;
    while (settings.subscriptions && frames.receiveFrom(socket)) {
        subscriptions += !frames.parts()[0].empty() && frames.parts()[0].front() == '\1' ? 1U : 0U;
    }
}

void Wire::awaitSubscriptions() {
    for (takeSubscriptions(); settings.subscriptions > subscriptions && !stop.requested(); takeSubscriptions()) {
        std::array<zmq_pollitem_t, 2> items = {
            {{socket, 0, ZMQ_POLLIN, 0}, {nullptr, stop.descriptor(), ZMQ_POLLIN, 0}}};
        zmq_poll(items.data(), static_cast<int>(items.size()), 250);
        reportRefusals();
    }
}

} // namespace rk::tools
