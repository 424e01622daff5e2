#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "display/ProgressBar.h"
#include "display/Terminal.h"
#include "recording/RecordingReader.h"
#include "system/StopSignals.h"
#include "traffic/Context.h"
#include "traffic/Outgoing.h"
#include "traffic/Pacer.h"

#include <algorithm>
#include <memory>
#include <unistd.h>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;
namespace ClosePolicy = rk::socket::ClosePolicy;

// In nanoseconds, a year. No recording means more, but a damaged one may say so.
constexpr double longest = 365.0 * 24 * 3600 * 1e9;

constexpr std::chrono::seconds lingerTime{2};

struct PublishOptions {
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    SourceSettings source;
    Repetition repetition;
    std::optional<std::chrono::nanoseconds> delay;
    std::optional<std::uint64_t> subscribers;
    bool live = false;
    std::optional<std::string> replay;
    double speed = 1.0;
};

std::size_t sizeOf(const Parts& message) {
    std::size_t size = 0;
    for (const std::string& part : message) {
        size += part.size();
    }
    return size;
}

class Publication {
public:
    Publication(const PublishOptions& optionsToUse, Pattern pattern, const Surroundings& surroundings)
        : options(optionsToUse),
          stop(surroundings.stop),
          complaints(surroundings.complaints),
          context(options.socket.keys, stop),
          wire(context, pattern, options.socket.endpoints.front(), options.socket, stop, complaints),
          pacer(options.socket.rate, stop),
          live(isLive()) {}

    ExitStatus run() {
        if (options.replay) {
            replay(*options.replay);
        } else {
            send();
        }
        finish();
        return ExitStatus::Done;
    }

private:
    /// Whether messages come when they come, so that they cannot wait for room.
    bool isLive() const {
        const auto& source = options.source;
        const bool typed =
            !options.replay && source.messages.empty() && source.files.empty() && isTerminal(STDIN_FILENO);
        return options.live || typed || (options.replay && options.speed > 0.0);
    }

    void send() {
        MessageCodec codec(options.codec, options.envelope, options.codec.type, std::nullopt, complaints);
        Outgoing outgoing(options.source, options.repetition, codec, complaints, stop);
        open();
        auto message = outgoing.next();
        while (message && send(*message)) {
            message = outgoing.next();
        }
    }

    /// False when told to stop.
    bool send(const Parts& message) {
        if (live) {
            dropped += wire.sendWithoutWaiting(message) ? 0U : 1U;
        } else if (!wire.send(message, Clock::time_point::max())) {
            return false;
        }
        pacer.pauseAfter(sizeOf(message));
        return true;
    }

    void replay(const std::string& path) {
        auto recording = std::make_unique<RecordingReader>(path, options.socket.maxSize, stop);
        ProgressBar bar(complaints);
        open();
        while (play(*recording, bar) && options.repetition.count && path != "-") {
            recording = std::make_unique<RecordingReader>(path, options.socket.maxSize, stop);
        }
    }

    /// Whether it may be played again: there was something in it, and more is wanted.
    bool play(RecordingReader& recording, ProgressBar& bar) {
        const auto start = Clock::now();
        const std::uint64_t before = sent;
        for (auto entry = nextDue(recording, start); entry && send(entry->parts); entry = nextDue(recording, start)) {
            ++sent;
            if (const auto now = Clock::now(); bar.due(now)) {
                bar.show(recording.progress(), std::to_string(sent) + " messages", now);
            }
        }
        bar.show(recording.progress(), std::to_string(sent) + " messages", Clock::now());
        return sent > before && wantsMore() && !stop.requested();
    }

    /// Waits for its time. Nothing when no more is wanted, or there is no more, or when told to stop.
    std::optional<RecordingReader::Entry> nextDue(RecordingReader& recording, Clock::time_point start) const {
        auto entry = wantsMore() ? recording.next() : std::nullopt;
        return entry && stop.sleepUntil(dueTime(start, entry->time)) ? std::move(entry) : std::nullopt;
    }

    bool wantsMore() const { return options.repetition.wantsMore(sent); }

    /// Opens the socket, and gives subscribers that are waiting for it the time to find it.
    void open() {
        wire.open(options.subscribers ? Wire::Subscriptions::Counted : Wire::Subscriptions::Ignored);
        if (options.subscribers) {
            wire.awaitSubscriptions(*options.subscribers);
        }
        if (options.delay) {
            stop.sleepUntil(Clock::now() + *options.delay);
        }
    }

    /// What is not live is delivered, unless the user wants otherwise or ends it.
    void finish() {
        const auto usual = live || stop.requested() ? ClosePolicy::LingerTwoSeconds : ClosePolicy::WaitForDelivery;
        const auto policy = options.socket.closePolicy.value_or(usual);
        const auto start = Clock::now();
        wire.close(policy);
        context.terminate();
        if (policy == ClosePolicy::LingerTwoSeconds && Clock::now() - start >= lingerTime) {
            complaints.add("gave up after two seconds: the last messages have not been delivered to all");
        }
        if (dropped > 0) {
            complaints.add("dropped at least " + std::to_string(dropped) + " messages for peers whose queue was full");
        }
    }

    Clock::time_point dueTime(Clock::time_point start, std::chrono::nanoseconds time) const {
        if (options.speed <= 0.0) {
            return start;
        }
        const double scaled = static_cast<double>(time.count()) / options.speed;
        return start + std::chrono::nanoseconds(static_cast<std::int64_t>(std::clamp(scaled, 0.0, longest)));
    }

    const PublishOptions& options;
    const StopSignals& stop;
    Complaints& complaints;
    Context context;
    Wire wire;
    Pacer pacer;
    bool live;
    std::uint64_t sent = 0;
    std::uint64_t dropped = 0; ///< ZeroMQ does not tell what a subscriber misses while it is behind
};

/// `pub` and `push`.
class Publish : public Command {
public:
    Publish(CLI::App& command, Pattern patternToUse) : pattern(patternToUse) {
        addEndpoint(command, options.socket, "where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
        addContents(command, options.source, "what to send");
        addHex(command, options.codec);
        addEnvelope(command, options.envelope);
        addSchema(command, options.codec, options.envelope, "messages");
        addCount(command, options.repetition, "send N messages, beginning again at the first when there are no more");
        addTime(command, "-i,--interval", options.repetition.interval, "wait TIME between messages");
        if (pattern == Pattern::Publish) {
            addSubscribers(command);
        }
        addReplay(command);
        addFlag(command, "--live", options.live,
                "drop messages for peers whose queue is full, instead of waiting for room", socketGroup);
        addRate(command, options.socket);
        addSocket(command, options.socket, "outgoing", true);
        addClosePolicy(command, options.socket, "wait, but linger for what is live or ended by a signal");
        addExamples(command, pattern == Pattern::Publish ? examplesOfPub() : examplesOfPush());
    }

    ExitStatus run(const Surroundings& surroundings) override {
        return Publication(options, pattern, surroundings).run();
    }
    bool isEndless() const override { return options.repetition.isEndless(); }

private:
    static std::vector<Example> examplesOfPub() {
        return {
            {"One message, to whoever waits for it", "rk-socket pub 'tcp://*:5557' 'hello'"},
            {"Each line of a program's output, once somebody listens",
             "seq 1 100 | rk-socket pub 'tcp://*:5557' --wait 1"},
            {"A protobuf message, ten times a second for a second",
             "rk-socket pub 'tcp://*:5557' --proto telemetry.proto --type telemetry.Reading --count 10 "
             "--interval 100ms '{\"sequence\": 1, \"load\": 0.5}'"},
            {"Four bytes", "rk-socket pub 'tcp://*:5557' --hex 'de ad be ef'"},
            {"A topic and a text, in two parts", "rk-socket pub 'tcp://*:5557' --separator '|' 'weather|sunny'"},
            {"What was recorded, ten times as fast", "rk-socket pub 'tcp://*:5557' --replay readings.rec --speed 10"}};
    }

    static std::vector<Example> examplesOfPush() {
        return {{"Hand each line to the next free worker", "seq 1 100 | rk-socket push 'tcp://*:5557'"},
                {"Give work to a collector that listens", "rk-socket push --connect tcp://localhost:5560 'a result'"}};
    }

    void addSubscribers(CLI::App& command) {
        options.delay = std::chrono::milliseconds(500);
        addTime(command, "--delay", *options.delay,
                "wait before the first message, so that subscribers that wait for the endpoint find it: what is sent "
                "before they have is lost to them");
        addValue<std::uint64_t>(command, "--wait", "N", options.subscribers,
                                "wait for N subscriptions before the first message, instead of --delay", timeGroup)
            ->transform(wholeNumber(1, 1000000));
        exclude(command, "--wait", {"--delay"});
        command.get_option("--wait")->each([this](const std::string&) { options.delay.reset(); });
    }

    void addReplay(CLI::App& command) {
        addText(command, "--replay", "FILE", options.replay, "send what sub --record has kept, with its timing",
                messageGroup);
        addValue<double>(command, "--speed", "FACTOR", options.speed, "replay faster or slower; 0: without pauses",
                         timeGroup)
            ->transform(number(0.0, 1e9))
            ->default_str("1")
            ->needs(command.get_option("--replay"));
        addMaxSize(command, options.socket.maxSize,
                   "the longest message of a recording; a longer one is taken for damage");
        command.get_option("--max-size")->needs(command.get_option("--replay"));
        exclude(command, "--replay",
                {"MESSAGE", "--file", "--lines", "--whole", "--hex", "--proto", "--descriptor-set", "--separator",
                 "--interval"});
    }

    Pattern pattern;
    PublishOptions options;
};

} // namespace

std::unique_ptr<Command> createPublish(CLI::App& command) {
    return std::make_unique<Publish>(command, Pattern::Publish);
}

std::unique_ptr<Command> createPush(CLI::App& command) {
    return std::make_unique<Publish>(command, Pattern::Push);
}

} // namespace rk::tools
