#include "Commands.h"

#include <chrono>

namespace telemetry {

namespace {

constexpr std::uint32_t longestIntervalMs = 1000;

} // namespace

Commands::Commands(Schedule& stationSchedule) : schedule(stationSchedule) {}

void Commands::handle(const Command& command, Answer& answer) {
    answer.set_id(command.id());
    answer.set_refusal(obey(command));
    const Schedule::State state = schedule.state();
    answer.set_paused(state.paused);
    answer.set_interval_ms(static_cast<std::uint32_t>(state.interval.count()));
    answer.set_last_sequence(state.lastSequence);
    ++servedCount;
}

/// Returns the reason for a refusal, or an empty string if the command was executed.
std::string Commands::obey(const Command& command) {
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

std::string Commands::setInterval(std::uint32_t milliseconds) {
    if (milliseconds < 1 || milliseconds > longestIntervalMs) {
        return "the interval must be 1 to " + std::to_string(longestIntervalMs) + " ms";
    }
    schedule.setInterval(std::chrono::milliseconds(milliseconds));
    return "";
}

std::uint64_t Commands::served() const {
    return servedCount;
}

} // namespace telemetry
