#include "traffic/Inbox.h"

#include "display/Complaints.h"
#include "display/Numbers.h"
#include "system/StopSignals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace rk::tools {

namespace {

constexpr std::chrono::milliseconds longestWait{100};

} // namespace

// Not made by make_unique, which would touch every page of a buffer that is mostly far too large.
Inbox::Inbox(rk::socket::Socket& socketToRead, const InboxSettings& settings, const StopSignals& stopSignals,
             Complaints& complaintsToUse)
    : socket(socketToRead),
      stop(stopSignals),
      complaints(complaintsToUse),
      capacity(settings.maxSize),
      timeout(settings.timeout),
      buffer(new char[capacity]) {}

Inbox::Event Inbox::await(const std::string& thing, Clock::time_point start, const MessageSinks& sinks) {
    const auto deadline = timeout ? start + *timeout : Clock::time_point::max();
    auto event = poll(start);
    while (event == Event::Nothing) {
        auto due = deadline;
        for (const auto& sink : sinks) {
            sink->pause(Clock::now());
            due = std::min(due, sink->due());
        }
        event = poll(due);
        if (timeout && event == Event::Nothing && Clock::now() >= deadline) {
            complaints.add("no " + thing + " within " + described(*timeout) + " on " + socket.debugString());
            break;
        }
    }
    return event;
}

Inbox::Event Inbox::poll(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const auto limit = std::clamp(left, std::chrono::milliseconds(0), longestWait);
    if (stop.requested()) {
        return Event::Stop;
    }
    std::string error;
    switch (socket.poll(static_cast<unsigned int>(limit.count()), error)) {
    case rk::socket::PollResult::Input:
        return Event::Message;
    case rk::socket::PollResult::Timeout:
        return Event::Nothing;
    case rk::socket::PollResult::Failure:
        break;
    }
    if (stop.requested()) {
        return Event::Stop;
    }
    if (error == std::strerror(EINTR) + (" on " + socket.debugString())) {
        return Event::Nothing;
    }
    throw std::runtime_error(error);
}

std::optional<Received> Inbox::receive() {
    const auto size = static_cast<std::size_t>(socket.receive(buffer.get(), capacity));
    const auto arrival = Clock::now();
    ++received;
    if (size > capacity) {
        complaints.add("message " + std::to_string(received) + ", " + std::to_string(size) +
                       " bytes: left out, longer than --max-size " + std::to_string(capacity));
        return std::nullopt;
    }
    return Received{received, std::string_view(buffer.get(), size), arrival};
}

bool Inbox::holdsMore() {
    std::string error;
    return socket.poll(0, error) == rk::socket::PollResult::Input;
}

} // namespace rk::tools
