#include "cli/Notes.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "system/Output.h"
#include "traffic/Context.h"
#include "traffic/Inbox.h"
#include "traffic/Outgoing.h"

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

struct SubscribeOptions {
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    bool stats = false;
    std::optional<std::string> record;
    Repetition repetition;
    std::optional<std::chrono::nanoseconds> timeout;
    std::chrono::nanoseconds interval = std::chrono::seconds(1);
};

class Subscription {
public:
    Subscription(const SubscribeOptions& optionsToUse, const Pattern& pattern, const Surroundings& surroundings)
        : options(optionsToUse),
          output(surroundings.stop),
          context(options.socket.keys, surroundings.stop),
          wires(open(pattern, surroundings)),
          inbox(pointersTo(wires), sinks, options.timeout,
                options.stats || options.record || options.envelope.needsTime(), surroundings.stop,
                surroundings.complaints) {
        addSinks(surroundings);
    }

    ExitStatus run() {
        const ExitStatus status = takeAll();
        for (const auto& sink : sinks) {
            sink->finish(Clock::now());
        }
        return status;
    }

private:
    using Wires = std::vector<std::unique_ptr<Wire>>;

    Wires open(const Pattern& pattern, const Surroundings& surroundings) {
        if (!options.stats && !options.record) {
            // First, because the schema may be wrong.
            codec = std::make_unique<MessageCodec>(options.codec, options.envelope, std::nullopt, options.codec.type,
                                                   surroundings.complaints);
        }
        Wires opened;
        for (const std::string& endpoint : options.socket.endpoints) {
            opened.push_back(std::make_unique<Wire>(context, pattern, endpoint, options.socket, surroundings.stop,
                                                    surroundings.complaints));
            opened.back()->open();
        }
        return opened;
    }

    static std::vector<Wire*> pointersTo(const Wires& wires) {
        std::vector<Wire*> pointers;
        for (const auto& wire : wires) {
            pointers.push_back(wire.get());
        }
        return pointers;
    }

    void addSinks(const Surroundings& surroundings) {
        if (options.record) {
            sinks.push_back(makeRecordingSink(*options.record, options.repetition.count, surroundings.complaints,
                                              surroundings.stop));
        }
        if (options.stats) {
            sinks.push_back(makeStatisticsSink(output, surroundings.complaints, options.interval,
                                               options.socket.endpoints, Clock::now()));
        }
        if (codec) {
            sinks.push_back(makePrintingSink(*codec, output, surroundings.complaints));
        }
    }

    ExitStatus takeAll() {
        for (std::uint64_t taken = 0; options.repetition.wantsMore(taken); ++taken) {
            const auto event = inbox.next("message");
            if (event == Inbox::Event::Stop || event == Inbox::Event::Timeout) {
                return event == Inbox::Event::Stop ? ExitStatus::Done : ExitStatus::TimedOut;
            }
            if (event == Inbox::Event::Message) {
                inbox.handOn();
            }
        }
        return ExitStatus::Done;
    }

    const SubscribeOptions& options;
    Output output;
    Context context;
    std::unique_ptr<MessageCodec> codec;
    Wires wires;
    MessageSinks sinks;
    Inbox inbox;
};

/// `sub` and `pull`.
class Subscribe : public Command {
public:
    Subscribe(CLI::App& command, const Pattern& patternToUse) : pattern(patternToUse) {
        addEndpoints(command, options.socket, "tcp://HOST:PORT or ipc://PATH, where the other side sends");
        addMessages(command, options.codec, options.envelope, Direction::Receives);
        command.get_option("--separator")->needs(command.get_option("--parts"));
        if (pattern.type == ZMQ_SUB) {
            addTexts(command, "--topic", "PREFIX", options.socket.topics, "only messages that begin with PREFIX");
        }
        addFlag(
            command, "--stats", options.stats,
            "show statistics instead of messages: redrawn in place on a terminal, else a line per interval, with sizes "
            "and gaps as least/mean/greatest");
        addText(command, "--record", "FILE", options.record,
                "write messages to FILE for pub --replay, not to the output");
        for (const char* const option : {"--stats", "--record"}) {
            exclude(command, option,
                    {"--proto", "--descriptor-set", "--format", "--parts", "--json", "--timestamps", "--template"});
        }
        addCount(command, options.repetition, "end after N messages");
        addTime(command, "-t,--timeout", options.timeout, "end with status 3 when no message arrives for TIME");
        addTime(command, "-i,--interval", options.interval, "the interval of --stats")
            ->needs(command.get_option("--stats"));
        addSize(command, "--max-size", options.socket.maxSize, "report and leave out longer messages");
        addSocket(command, options.socket, "incoming", false);
        endHelp(command, {notes::messages, notes::statistics, notes::recordings, notes::dropping, notes::encryption},
                pattern.type == ZMQ_SUB ? examplesOfSub() : examplesOfPull());
    }

    ExitStatus run(const Surroundings& surroundings) override {
        return Subscription(options, pattern, surroundings).run();
    }
    bool isEndless() const override { return !options.repetition.count || options.repetition.isEndless(); }

private:
    static std::vector<Example> examplesOfSub() {
        return {{"Does anything arrive? Status 3 if nothing does within two seconds",
                 "rk-socket sub tcp://localhost:5555 --count 1 --timeout 2s"},
                {"How fast, how large, how regular? Until Ctrl-C", "rk-socket sub tcp://localhost:5555 --stats"},
                {"Print three protobuf messages as JSON",
                 "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type telemetry.Reading --count 3"},
                {"One field of each message, with jq",
                 "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type Reading | jq .load"},
                {"Record a hundred messages with their timing",
                 "rk-socket sub tcp://localhost:5555 --record readings.rec --count 100"}};
    }

    static std::vector<Example> examplesOfPull() {
        return {{"Take one task", "rk-socket pull tcp://localhost:5561 --count 1"},
                {"Collect results", "rk-socket pull --bind 'tcp://*:5560' --json"}};
    }

    const Pattern& pattern;
    SubscribeOptions options;
};

} // namespace

std::unique_ptr<Command> createSubscribe(CLI::App& command) {
    return std::make_unique<Subscribe>(command, subscribing);
}

std::unique_ptr<Command> createPull(CLI::App& command) {
    return std::make_unique<Subscribe>(command, pulling);
}

} // namespace rk::tools
