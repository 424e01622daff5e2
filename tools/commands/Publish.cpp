#include "cli/Notes.h"
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

// A year, in nanoseconds. A damaged recording may contain more.
constexpr double longest = 365.0 * 24 * 3600 * 1e9;

constexpr std::chrono::seconds lingerTime{2};

struct PublishOptions {
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    SourceSettings source;
    Repetition repetition;
    std::optional<std::chrono::nanoseconds> delay;
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
    Publication(const PublishOptions& optionsToUse, const Pattern& pattern, const Surroundings& surroundings)
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
    /// Whether messages have their own timing, and cannot wait for room.
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

    /// Returns false after a signal.
    bool send(const Parts& message) {
        if (live) {
            dropped += wire.sendWithoutWaiting(message) ? 0U : 1U;
        } else if (!wire.send(message)) {
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

    /// Returns whether it can be played again: it had messages, and more are wanted.
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

    /// Waits until the next message is due. Nothing when there are no more, or after a signal.
    std::optional<RecordingReader::Entry> nextDue(RecordingReader& recording, Clock::time_point start) const {
        auto entry = wantsMore() ? recording.next() : std::nullopt;
        return entry && stop.sleepUntil(dueTime(start, entry->time)) ? std::move(entry) : std::nullopt;
    }

    bool wantsMore() const { return options.repetition.wantsMore(sent); }

    /// Opens the socket, and gives subscribers time to connect.
    void open() {
        wire.open();
        if (options.delay) {
            stop.sleepUntil(Clock::now() + *options.delay);
        }
    }

    /// Waits by default until messages are delivered that are not live.
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
    std::uint64_t dropped = 0; ///< at least: ZeroMQ does not count them
};

/// `pub` and `push`.
class Publish : public Command {
public:
    Publish(CLI::App& command, const Pattern& patternToUse) : pattern(patternToUse) {
        addEndpoint(command, options.socket, "where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
        addContents(command, options.source, "the messages");
        addMessages(command, options.codec, options.envelope, Direction::Sends);
        addCount(command, options.repetition, "send N messages, from the first again when there are no more");
        addTime(command, "-i,--interval", options.repetition.interval, "wait TIME between messages");
        if (pattern.type == ZMQ_PUB) {
            addSubscribers(command);
        }
        addReplay(command);
        addFlag(command, "--live", options.live,
                "drop messages for peers with a full queue, and report it, instead of waiting for room", socketGroup);
        addSending(command, options.socket, "wait, or linger for live messages and after a signal");
        addSocket(command, options.socket, "outgoing", true);
        endHelp(command, {notes::messages, notes::dropping, notes::recordings, notes::encryption},
                pattern.type == ZMQ_PUB ? examplesOfPub() : examplesOfPush());
    }

    ExitStatus run(const Surroundings& surroundings) override {
        return Publication(options, pattern, surroundings).run();
    }
    bool isEndless() const override { return options.repetition.isEndless(); }

private:
    static std::vector<Example> examplesOfPub() {
        return {
            {"Publish one message", "rk-socket pub 'tcp://*:5557' 'hello'"},
            {"Publish each line of standard input, once there is a subscriber",
             "seq 1 100 | rk-socket pub 'tcp://*:5557' --wait 1"},
            {"Publish a protobuf message ten times in a second",
             "rk-socket pub 'tcp://*:5557' --proto telemetry.proto --type telemetry.Reading --count 10 "
             "--interval 100ms '{\"sequence\": 1, \"load\": 0.5}'"},
            {"Publish four bytes", "rk-socket pub 'tcp://*:5557' --hex 'de ad be ef'"},
            {"Publish a topic and a text, in two parts",
             "rk-socket pub 'tcp://*:5557' --separator '|' 'weather|sunny'"},
            {"Publish a recording ten times as fast", "rk-socket pub 'tcp://*:5557' --replay readings.rec --speed 10"}};
    }

    static std::vector<Example> examplesOfPush() {
        return {
            {"Give each line to the next free worker", "seq 1 100 | rk-socket push 'tcp://*:5557'"},
            {"Give a result to a collector that listens", "rk-socket push --connect tcp://localhost:5560 'a result'"}};
    }

    void addSubscribers(CLI::App& command) {
        options.delay = std::chrono::milliseconds(500);
        addTime(command, "--delay", options.delay,
                "wait TIME before the first message, so that subscribers can connect: earlier messages do not reach "
                "them");
        addValue<std::uint64_t>(command, "--wait", "N", options.socket.subscriptions,
                                "wait for N subscriptions before the first message, instead of --delay", timeGroup)
            ->transform(wholeNumber(1, 1000000))
            ->each([this](const std::string&) { options.delay.reset(); });
        exclude(command, "--wait", {"--delay"});
    }

    void addReplay(CLI::App& command) {
        auto* const replay =
            addText(command, "--replay", "FILE", options.replay, "send a recording of sub --record, with its timing");
        addValue<double>(command, "--speed", "FACTOR", options.speed, "replay FACTOR times as fast; 0: without pauses",
                         timeGroup)
            ->transform(number(0.0, 1e9))
            ->default_str("1")
            ->needs(replay);
        addSize(command, "--max-size", options.socket.maxSize, "treat longer messages in a recording as damage")
            ->needs(replay);
        exclude(command, "--replay",
                {"MESSAGE", "--file", "--lines", "--whole", "--hex", "--proto", "--descriptor-set", "--separator",
                 "--interval"});
    }

    const Pattern& pattern;
    PublishOptions options;
};

} // namespace

std::unique_ptr<Command> createPublish(CLI::App& command) {
    return std::make_unique<Publish>(command, publishing);
}

std::unique_ptr<Command> createPush(CLI::App& command) {
    return std::make_unique<Publish>(command, pushing);
}

} // namespace rk::tools
