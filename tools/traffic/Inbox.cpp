#include "traffic/Inbox.h"

#include "display/Complaints.h"
#include "display/Numbers.h"
#include "system/StopSignals.h"
#include "traffic/Wire.h"

#include <algorithm>
#include <stdexcept>

namespace rk::tools {

namespace {

using std::chrono::milliseconds;

// Output waits this long for more messages, so that it is written in few pieces.
constexpr milliseconds gathering{1};
constexpr milliseconds checkInterval{250};
constexpr milliseconds connectPatience{500};

} // namespace

Inbox::Inbox(std::vector<Wire*> wiresToRead, const MessageSinks& sinksToServe,
             std::optional<std::chrono::nanoseconds> timeoutToKeep, bool needsTime, const StopSignals& stopSignals,
             Complaints& complaintsToUse)
    : wires(std::move(wiresToRead)),
      sinks(sinksToServe),
      items(wires.size() + 1),
      stop(stopSignals),
      complaints(complaintsToUse),
      timeout(timeoutToKeep),
      timed(needsTime) {}

Inbox::Event Inbox::next(const char* thing, std::optional<Clock::time_point> start) {
    if (stop.requested()) {
        return Event::Stop;
    }
    while (!take()) {
        if (!await(start)) {
            if (stop.requested()) {
                return Event::Stop;
            }
            reportTimeout(thing);
            return Event::Timeout;
        }
    }
    if (timed) {
        arrival = Clock::now();
    }
    ++received;
    if (frames.size() > wires[turn]->maxSize()) {
        complaints.add("message " + std::to_string(received) + ", " + std::to_string(frames.size()) +
                       " bytes: left out, longer than --max-size " + std::to_string(wires[turn]->maxSize()));
        return Event::TooLong;
    }
    return Event::Message;
}

void Inbox::handOn() const {
    const Received message{received, frames.parts(), frames.size(), wires[turn]->endpoint(), arrival};
    for (const auto& sink : sinks) {
        sink->take(message);
    }
}

bool Inbox::take() {
    for (std::size_t tried = 0; tried < wires.size(); ++tried) {
        turn = turn + 1 < wires.size() ? turn + 1 : 0;
        if (wires[turn]->receive(frames)) {
            return true;
        }
    }
    return false;
}

/// Waits for input. Returns false after the timeout or a signal.
bool Inbox::await(std::optional<Clock::time_point> start) {
    const bool gathers = std::any_of(sinks.begin(), sinks.end(), [](const auto& sink) { return sink->keepsBack(); });
    if (gathers && poll(Clock::now() + gathering)) {
        return true;
    }
    const auto deadline = timeout ? start.value_or(Clock::now()) + *timeout : Clock::time_point::max();
    do {
        auto due = std::min(deadline, Clock::now() + checkInterval);
        for (const auto& sink : sinks) {
            sink->pause(Clock::now());
            due = std::min(due, sink->due());
        }
        lookAfterConnections();
        if (poll(due)) {
            return true;
        }
    } while (!stop.requested() && Clock::now() < deadline);
    return false;
}

bool Inbox::poll(Clock::time_point deadline) {
    std::transform(wires.begin(), wires.end(), items.begin(),
                   [](const Wire* wire) { return zmq_pollitem_t{wire->native(), 0, ZMQ_POLLIN, 0}; });
    items.back() = {nullptr, stop.descriptor(), ZMQ_POLLIN, 0};
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    const int limit = static_cast<int>(std::max<milliseconds::rep>(left, 0)); // at most checkInterval
    const int result = zmq_poll(items.data(), static_cast<int>(items.size()), limit);
    if (result < 0 && zmq_errno() != EINTR) {
        throw std::runtime_error(zmq_strerror(zmq_errno()));
    }
    return result > 0 && !stop.requested();
}

void Inbox::lookAfterConnections() {
    const auto now = Clock::now();
    for (Wire* const wire : wires) {
        wire->reportRefusals();
        if (wire->connection() != nullptr) {
            lookAfter(*wire, now);
        }
    }
}

void Inbox::lookAfter(Wire& wire, Clock::time_point now) {
    Connection& connection = *wire.connection();
    connection.update();
    if (!connection.wasMade() && now - begin >= connectPatience && diagnosed.insert(wire.endpoint()).second) {
        if (const auto trouble = wire.trouble()) {
            complaints.remark(wire.endpoint() + ": " + *trouble);
        }
    }
    if (!connection.isGivenUp(now)) {
        return;
    }
    if (connection.wasMade()) {
        complaints.add(wire.endpoint() +
                       ": connecting again, after the other side sent a message longer than --max-size " +
                       std::to_string(wire.maxSize()) + " or broke the protocol");
    }
    wire.reconnect();
    begin = now;
}

void Inbox::reportTimeout(const char* thing) {
    std::string names;
    for (const Wire* const wire : wires) {
        names += (names.empty() ? "" : " ") + wire->endpoint();
    }
    complaints.report(std::string("no ") + thing + " within " + described(*timeout) + " on [Socket " + names + "]");
}

} // namespace rk::tools
