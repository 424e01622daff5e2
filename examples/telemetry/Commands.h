#pragma once

#include "Schedule.h"
#include "telemetry.pb.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace telemetry {

/// Executes the operator's commands, which change the schedule.
class Commands {
public:
    explicit Commands(Schedule& schedule);

    /// Executes or refuses a command, and fills in the answer.
    void handle(const Command& command, Answer& answer);

    /// Returns how many commands have been answered. Any thread may call it.
    std::uint64_t served() const;

private:
    std::string obey(const Command& command);
    std::string setInterval(std::uint32_t milliseconds);

    Schedule& schedule;
    std::atomic<std::uint64_t> servedCount{0};
};

} // namespace telemetry
