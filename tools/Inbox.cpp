#include "Inbox.h"

#include "StopSignals.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace rk::tools {

namespace {

constexpr std::chrono::milliseconds longestWait{100};

} // namespace

// Not made by make_unique, which would touch every page of a buffer that is mostly far too large.
Inbox::Inbox(rk::socket::Socket& socketToRead, std::size_t longest, const StopSignals& stopSignals)
    : socket(socketToRead), stop(stopSignals), capacity(longest), buffer(new char[longest]) {}

Inbox::Event Inbox::look() {
    return poll(std::chrono::milliseconds(0));
}

Inbox::Event Inbox::wait(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return poll(std::clamp(left, std::chrono::milliseconds(0), longestWait));
}

Inbox::Event Inbox::poll(std::chrono::milliseconds limit) {
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

Inbox::Block Inbox::receive() {
    const auto size = static_cast<std::size_t>(socket.receive(buffer.get(), capacity));
    return {std::string_view(buffer.get(), std::min(size, capacity)), size};
}

} // namespace rk::tools
