#include "CommandListener.h"

#include <rk/socket/Socket.h>

#include <chrono>

namespace telemetry {

namespace {

constexpr std::uint32_t longestIntervalMs = 1000;

} // namespace

CommandListener::CommandListener(Schedule& stationSchedule)
    : SocketListener(rk::socket::Protocol::Rep, "station commands"), schedule(stationSchedule) {}

CommandListener::~CommandListener() {
    std::string ignored;
    CommandListener::stop(ignored);
}

std::shared_ptr<google::protobuf::Message> CommandListener::createMessage() {
    return std::make_shared<Command>();
}

void CommandListener::handleMessage(google::protobuf::Message* message, std::shared_ptr<rk::socket::Socket> socket) {
    const auto& command = static_cast<const Command&>(*message);
    Answer answer;
    answer.set_id(command.id());
    answer.set_refusal(obey(command));
    const Schedule::State state = schedule.state();
    answer.set_paused(state.paused);
    answer.set_interval_ms(static_cast<std::uint32_t>(state.interval.count()));
    answer.set_last_sequence(state.lastSequence);
    socket->sendProtoBuf(&answer);
    ++servedCount;
}

/// The reason for a refusal; empty when the command was obeyed.
std::string CommandListener::obey(const Command& command) {
    switch (command.action()) {
    case Command::STATUS:
        return "";
    case Command::SET_INTERVAL:
        return setInterval(command.interval_ms());
    case Command::PAUSE:
        schedule.pause();
        return "";
    case Command::RESUME:
        schedule.resume();
        return "";
    default:
        return "unknown command";
    }
}

std::string CommandListener::setInterval(std::uint32_t milliseconds) {
    if (milliseconds < 1 || milliseconds > longestIntervalMs) {
        return "the interval must be 1 to " + std::to_string(longestIntervalMs) + " ms";
    }
    schedule.setInterval(std::chrono::milliseconds(milliseconds));
    return "";
}

std::uint64_t CommandListener::served() const {
    return servedCount;
}

} // namespace telemetry
