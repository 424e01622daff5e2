#pragma once

#include "Complaints.h"
#include "ExitStatus.h"
#include "Settings.h"
#include "StopSignals.h"

namespace rk::tools {

/// What every subcommand works with.
struct Surroundings {
    const Settings& settings;
    const StopSignals& stop;
    Complaints& complaints;
};

/// The subcommands. Each works until it is done or told to stop, and throws std::runtime_error, or ReaderGone, when it
/// cannot go on. `Failed` is left to what they complain about.
ExitStatus subscribe(const Surroundings& surroundings);
ExitStatus publish(const Surroundings& surroundings);
ExitStatus request(const Surroundings& surroundings);
ExitStatus reply(const Surroundings& surroundings);

} // namespace rk::tools
