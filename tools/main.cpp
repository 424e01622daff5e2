#include "cli/CommandLine.h"
#include "cli/Formatter.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "display/Log.h"
#include "system/Output.h"
#include "system/StopSignals.h"

#include <cstdio>
#include <exception>
#include <map>
#include <new>

namespace rk::tools {

namespace {

const char* const exitStatuses = "Exit status:\n"
                                 "  0         done; also when SIGINT or SIGTERM ended what has no end of its own,\n"
                                 "            or the reader of the output is gone\n"
                                 "  1         something failed, and a line on standard error says what\n"
                                 "  2         the command line was not understood; nothing was done\n"
                                 "  3         the time of --timeout ran out, and nothing else failed\n"
                                 "  130, 143  SIGINT or SIGTERM came before the work was done\n"
                                 "\n"
                                 "'rk-socket COMMAND --help' shows a command's options, with examples.\n";

/// The program's options, and its subcommands with theirs.
class Program {
public:
    Program() : options("Inspect and talk to ZeroMQ endpoints: text, bytes, or protobuf messages as JSON.") {
        options.name("rk-socket");
        options.formatter(std::make_shared<Formatter>());
        options.footer(exitStatuses);
        options.option_defaults()->group("Options");
        options.set_help_flag("-h,--help", "show this help");
        options.set_version_flag("--version", RK_SOCKET_VERSION, "show the version");
        options.require_subcommand(1);
        for (const CommandEntry& entry : allCommands()) {
            CLI::App* const command = options.add_subcommand(entry.name, entry.purpose);
            commands[command] = entry.create(*command);
            command->add_flag("-v,--verbose", verbose, "show what the library logs, on standard error")
                ->group("General");
            command->set_help_flag("-h,--help", "show this help")->group("General");
        }
        options.get_subcommand("probe")->alias("check");
        options.set_help_all_flag("--help-all", "show this help, and that of every command");
    }

    CLI::App options;
    bool verbose = false;

    /// The subcommand that the user has chosen.
    Command& chosen() const { return *commands.at(options.get_subcommands().front()); }

private:
    std::map<const CLI::App*, std::unique_ptr<Command>> commands;
};

/// A reader that has gone has seen what it wanted.
ExitStatus runWhileRead(Command& command, const Surroundings& surroundings) {
    try {
        return command.run(surroundings);
    } catch (const ReaderGone&) {
        return ExitStatus::Done;
    }
}

int work(Command& command, const StopSignals& stop, Complaints& complaints) {
    const ExitStatus status = runWhileRead(command, {stop, complaints});
    if (complaints.any()) {
        return static_cast<int>(ExitStatus::Failed);
    }
    if (status != ExitStatus::Done) {
        return static_cast<int>(status);
    }
    return stop.requested() && !command.isEndless() ? 128 + stop.signal() : 0;
}

int print(const std::string& text, const StopSignals& stop) {
    Output output(stop);
    output.write(text);
    output.flush();
    return 0;
}

int run(int argc, const char* const* argv) {
    const StopSignals stop;
    Complaints complaints;
    try {
        Program program;
        if (argc == 1) {
            std::fputs(program.options.help().c_str(), stderr);
            return static_cast<int>(ExitStatus::Usage);
        }
        if (const auto information = parseCommandLine(program.options, argc, argv)) {
            return print(*information, stop);
        }
        if (program.verbose) {
            showLibraryLog();
        }
        return work(program.chosen(), stop, complaints);
    } catch (const ReaderGone&) {
        return 0;
    } catch (const Misuse& misuse) {
        complaints.add(misuse.what());
        return static_cast<int>(ExitStatus::Usage);
    } catch (const std::bad_alloc&) {
        complaints.add("out of memory");
        return static_cast<int>(ExitStatus::Failed);
    } catch (const std::exception& failure) {
        complaints.add(failure.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}

} // namespace

} // namespace rk::tools

int main(int argc, char** argv) {
    return rk::tools::run(argc, argv);
}
