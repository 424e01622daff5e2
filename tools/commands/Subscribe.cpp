#include "cli/NetworkOptions.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "system/Output.h"
#include "traffic/Inbox.h"

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

struct SubscribeOptions {
    SocketSettings socket;
    CodecSettings codec;
    bool stats = false;
    std::optional<std::string> record;
    std::optional<std::uint64_t> count;
    InboxSettings inbox;
    std::chrono::nanoseconds interval = std::chrono::seconds(1);
};

class Subscription {
public:
    Subscription(const SubscribeOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          output(surroundings.stop),
          socket(socketName(options.socket), options.socket.closePolicy),
          inbox(socket, options.inbox, surroundings.stop, surroundings.complaints) {
        if (!options.stats && !options.record) {
            codec = makeCodec(options.codec, std::nullopt, options.codec.type, surroundings.complaints);
        }
        openSocket(socket, rk::socket::Protocol::Sub, options.socket);
        if (options.record) {
            sinks.push_back(makeRecordingSink(*options.record, options.count, surroundings.stop));
        }
        if (options.stats) {
            sinks.push_back(makeStatisticsSink(output, options.interval, Clock::now()));
        }
        if (codec) {
            sinks.push_back(makePrintingSink(*codec, output, surroundings.complaints));
        }
    }

    ExitStatus run() {
        const ExitStatus status = takeAll();
        for (const auto& sink : sinks) {
            sink->finish(Clock::now());
        }
        return status;
    }

private:
    ExitStatus takeAll() {
        auto lastArrival = Clock::now();
        for (std::uint64_t taken = 0; !options.count || taken < *options.count; ++taken) {
            const auto event = inbox.await("message", lastArrival, sinks);
            if (event != Inbox::Event::Message) {
                return event == Inbox::Event::Stop ? ExitStatus::Done : ExitStatus::TimedOut;
            }
            const auto message = inbox.receive();
            lastArrival = message ? message->arrival : Clock::now();
            handOn(message, sinks);
        }
        return ExitStatus::Done;
    }

    const SubscribeOptions& options;
    Output output;
    rk::socket::Socket socket;
    Inbox inbox;
    std::unique_ptr<Codec> codec;
    MessageSinks sinks;
};

class Subscribe : public Command {
public:
    explicit Subscribe(CLI::App& command) {
        addEndpoints(command, options.socket,
                     "tcp://HOST:PORT or ipc://PATH, where somebody publishes; messages of all of them are mixed as "
                     "they come");
        addFormat(command, options.codec, "messages");
        addSchema(command, options.codec, "messages");
        addStatisticsAndRecording(command);
        addCount(command, options.count, "end after N messages");
        addInbox(command, options.inbox, "end, with status 3, when no message has come for TIME");
        addTime(command, "-i,--interval", options.interval, "for --stats: TIME between lines");
        addQueue(command, options.socket, "incoming");
        addNetwork(command, false);
        addExamples(command,
                    {{"Is anything coming out of that port? Ends with status 3 if nothing does within two seconds",
                      "rk-socket sub tcp://localhost:5555 --count 1 --timeout 2s"},
                     {"How fast, how large, how regular? Until Ctrl-C", "rk-socket sub tcp://localhost:5555 --stats"},
                     {"What does it say?",
                      "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type telemetry.Reading --count 3"},
                     {"One field of each message, through jq",
                      "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type Reading | jq .load"},
                     {"Keep the next hundred messages, with their timing",
                      "rk-socket sub tcp://localhost:5555 --record readings.rec --count 100"}});
    }

    ExitStatus run(const Surroundings& surroundings) override { return Subscription(options, surroundings).run(); }
    bool isEndless() const override { return !options.count; }

private:
    void addStatisticsAndRecording(CLI::App& command) {
        addFlag(command, "--stats", options.stats,
                "instead of the messages, show how many there are, how large and how regular: redrawn in place on a "
                "terminal, else a line for each interval",
                messageGroup);
        addText(command, "--record", "FILE", options.record,
                "instead of printing the messages, keep them in FILE for pub --replay", messageGroup);
        exclude(command, "--stats", {"--proto", "--format"});
        exclude(command, "--record", {"--proto", "--format"});
    }

    SubscribeOptions options;
};

} // namespace

std::unique_ptr<Command> createSubscribe(CLI::App& command) {
    return std::make_unique<Subscribe>(command);
}

} // namespace rk::tools
