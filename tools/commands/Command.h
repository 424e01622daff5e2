#pragma once

namespace rk::tools {

class Complaints;
class StopSignals;

/// The exit status of the process. A signal that interrupts the work makes it 128 + its number instead.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    TimedOut = 3
};

/// What all subcommands need.
struct Surroundings {
    const StopSignals& stop;
    Complaints& complaints;
};

/// A subcommand and the options that the user gave it.
class Command {
public:
    virtual ~Command() = default;

    /// Works until it is done, or until a signal. Complaints make the exit status `Failed`. Throws std::runtime_error if
    /// the work cannot continue, and ReaderGone.
    virtual ExitStatus run(const Surroundings& surroundings) = 0;

    /// Returns whether only a signal ends the work, so that it is no interruption.
    virtual bool isEndless() const { return false; }
};

} // namespace rk::tools
