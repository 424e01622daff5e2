#include "cli/CommandLine.h"
#include "cli/Formatter.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "display/Log.h"
#include "system/Output.h"
#include "system/StopSignals.h"

#include <array>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <new>

namespace rk::tools {

/// Makes a command, and adds its options to `options`. Parsing writes their values into the command.
using Creator = std::unique_ptr<Command>(CLI::App& options);

Creator createKeygen, createProbe, createPubkey, createPublish, createPull, createPush, createReply, createRequest,
    createSubscribe, createTypes; // each in the file of its command

namespace {

/// A line in the table of subcommands.
struct Entry {
    const char* name;
    const char* purpose;
    Creator* create;
};

/// In the order of the help.
constexpr std::array<Entry, 10> entries = {{
    {"sub", "Print published messages", createSubscribe},
    {"pub", "Publish messages", createPublish},
    {"req", "Send requests and print the replies", createRequest},
    {"rep", "Print requests and answer them", createReply},
    {"push", "Send each message to one of several receivers", createPush},
    {"pull", "Print messages of a PUSH socket", createPull},
    {"probe", "Show what listens at an endpoint (alias: check)", createProbe},
    {"types", "List the types of a schema", createTypes},
    {"keygen", "Write a key pair, and print the lines for its peers", createKeygen},
    {"pubkey", "Print the public key of a key pair", createPubkey},
}};

const char* const footer = R"(
Exit status:
  0         done, also when a signal ends a command without an end, or the
            reader of the output has gone
  1         something failed, and a line on standard error says what
  2         the command line is wrong, and nothing was done
  3         a wait has timed out, and nothing else failed
  130, 143  SIGINT or SIGTERM arrived before the work was done

'rk-socket COMMAND --help' shows the options of a command, and examples.
See also 'man rk-socket'.
)";

/// The options of the program, and its subcommands with theirs.
class Program {
public:
    Program() : options("Inspect and talk to ZeroMQ endpoints: text, bytes, or protobuf messages as JSON.") {
        options.name("rk-socket");
        options.formatter(std::make_shared<Formatter>());
        options.footer(footer);
        options.option_defaults()->group("Options");
        options.set_help_flag("-h,--help", "show this help");
        options.set_version_flag("--version", RK_SOCKET_VERSION, "show the version");
        options.require_subcommand(1);
        for (const Entry& entry : entries) {
            CLI::App* const command = options.add_subcommand(entry.name, entry.purpose);
            commands[command] = entry.create(*command);
            command->add_flag("-v,--verbose", verbose, "show the log of the sockets on standard error")
                ->group("General");
            command->set_help_flag("-h,--help", "show this help")->group("General");
        }
        options.get_subcommand("probe")->alias("check");
        options.set_help_all_flag("--help-all", "show this help and that of every command");
    }

    /// The subcommand that the user has chosen.
    Command& chosen() const { return *commands.at(options.get_subcommands().front()); }

    CLI::App options;
    bool verbose = false;

private:
    std::map<const CLI::App*, std::unique_ptr<Command>> commands;
};

int print(const std::string& text, const StopSignals& stop) {
    Output output(stop);
    output.write(text);
    output.flush();
    return 0;
}

int work(Command& command, const StopSignals& stop, Complaints& complaints) {
    ExitStatus status = ExitStatus::Done;
    try {
        status = command.run({stop, complaints});
    } catch (const ReaderGone&) {
        // It has read enough.
    }
    if (complaints.any()) {
        status = ExitStatus::Failed;
    }
    const bool isInterrupted = status == ExitStatus::Done && stop.requested() && !command.isEndless();
    return isInterrupted ? 128 + stop.signal() : static_cast<int>(status);
}

int run(int argc, const char* const* argv, const StopSignals& stop, Complaints& complaints) {
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
}

int run(int argc, const char* const* argv) {
    Complaints complaints;
    ExitStatus status = ExitStatus::Failed;
    try {
        const StopSignals stop;
        return run(argc, argv, stop, complaints);
    } catch (const ReaderGone&) {
        status = ExitStatus::Done;
    } catch (const Misuse& misuse) {
        complaints.add(misuse.what());
        status = ExitStatus::Usage;
    } catch (const std::bad_alloc&) {
        complaints.add("out of memory");
    } catch (const std::exception& failure) {
        complaints.add(failure.what());
    }
    return static_cast<int>(status);
}

} // namespace

} // namespace rk::tools

int main(int argc, char** argv) {
    return rk::tools::run(argc, argv);
}
