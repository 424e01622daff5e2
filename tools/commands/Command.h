#pragma once

#include <memory>
#include <vector>

namespace CLI {
class App;
}

namespace rk::tools {

class Complaints;
class StopSignals;

/// How the process ends. A signal that cuts the work short makes it 128 + the signal's number instead.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,
    Usage = 2,
    TimedOut = 3
};

/// What every subcommand works with.
struct Surroundings {
    const StopSignals& stop;
    Complaints& complaints;
};

/// A subcommand and the options that the user gave it.
class Command {
public:
    virtual ~Command() = default;

    /// Works until it is done or told to stop. Complaints make the exit status `Failed`. Throws std::runtime_error, or
    /// ReaderGone, when it cannot go on.
    virtual ExitStatus run(const Surroundings& surroundings) = 0;

    /// Whether only a signal can end the work, which then is no interruption.
    virtual bool isEndless() const { return false; }
};

/// A line in the table of subcommands.
struct CommandEntry {
    const char* name;
    const char* purpose;

    /// Adds the options of a new command to `options`, which parsing writes into the command.
    std::unique_ptr<Command> (*create)(CLI::App& options);
};

/// The table of subcommands, in the order of the help.
const std::vector<CommandEntry>& allCommands();

} // namespace rk::tools
