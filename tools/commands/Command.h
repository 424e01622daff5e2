#pragma once

#include <memory>
#include <vector>

namespace CLI {
class App;
}

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

/// A line in the table of subcommands.
struct CommandEntry {
    const char* name;
    const char* purpose;

    /// Makes the command, and adds its options to `options`. Parsing writes their values into the command.
    std::unique_ptr<Command> (*create)(CLI::App& options);
};

/// The table of subcommands, in the order of the help.
const std::vector<CommandEntry>& allCommands();

} // namespace rk::tools
