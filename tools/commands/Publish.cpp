#include "cli/NetworkOptions.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "display/ProgressBar.h"
#include "recording/RecordingReader.h"
#include "system/StopSignals.h"
#include "traffic/Outgoing.h"

#include <algorithm>
#include <memory>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

// In nanoseconds, a year. No recording means more, but a damaged one may say so.
constexpr double longest = 365.0 * 24 * 3600 * 1e9;

struct PublishOptions {
    SocketSettings socket;
    CodecSettings codec;
    SourceSettings source;
    Repetition repetition;
    std::chrono::nanoseconds delay = std::chrono::milliseconds(500);
    std::optional<std::string> replay;
    double speed = 1.0;
};

class Publication {
public:
    Publication(const PublishOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          stop(surroundings.stop),
          complaints(surroundings.complaints),
          socket(socketName(options.socket), options.socket.closePolicy) {}

    ExitStatus run() { return options.replay ? replay(*options.replay) : send(); }

private:
    ExitStatus send() {
        const auto codec = makeCodec(options.codec, options.codec.type, std::nullopt, complaints);
        Outgoing outgoing(options.source, options.repetition, *codec, complaints, stop);
        open();
        while (auto block = outgoing.next()) {
            socket.send(block->data(), block->size());
        }
        return ExitStatus::Done;
    }

    ExitStatus replay(const std::string& path) {
        auto recording = std::make_unique<RecordingReader>(path, stop);
        ProgressBar bar;
        open();
        while (play(*recording, bar) && options.repetition.count && path != "-") {
            recording = std::make_unique<RecordingReader>(path, stop);
        }
        return ExitStatus::Done;
    }

    /// Whether it may be played again: there was something in it, and more is wanted.
    bool play(RecordingReader& recording, ProgressBar& bar) {
        const auto start = Clock::now();
        const std::uint64_t before = sent;
        while (auto entry = nextDue(recording, start)) {
            socket.send(entry->block.data(), entry->block.size());
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
        openSocket(socket, rk::socket::Protocol::Pub, options.socket);
        stop.sleepUntil(Clock::now() + options.delay);
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
    rk::socket::Socket socket;
    std::uint64_t sent = 0;
};

class Publish : public Command {
public:
    explicit Publish(CLI::App& command) {
        options.socket.closePolicy = rk::socket::ClosePolicy::LingerTwoSeconds;
        addEndpoint(command, options.socket, "where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
        addContents(command, options.source, "what to publish");
        addHex(command, options.codec);
        addSchema(command, options.codec, "messages");
        addCount(command, options.repetition.count,
                 "publish N messages, beginning again at the first when there are no more; 0: for ever");
        addTime(command, "-i,--interval", options.repetition.interval, "wait TIME between messages");
        addTime(command, "--delay", options.delay,
                "wait before the first message, so that subscribers that wait for the endpoint find it: what is sent "
                "before they have is lost to them");
        addReplay(command);
        addRate(command, options.socket);
        addQueue(command, options.socket, "outgoing");
        addNetwork(command, true);
        addExamples(command,
                    {{"One message, to whoever waits for it", "rk-socket pub 'tcp://*:5557' 'hello'"},
                     {"Each line of a program's output", "seq 1 100 | rk-socket pub 'tcp://*:5557'"},
                     {"A protobuf message, ten times a second for a second",
                      "rk-socket pub 'tcp://*:5557' --proto telemetry.proto --type telemetry.Reading --count 10 "
                      "--interval 100ms '{\"sequence\": 1, \"load\": 0.5}'"},
                     {"Four bytes", "rk-socket pub 'tcp://*:5557' --hex 'de ad be ef'"},
                     {"What was recorded, ten times as fast",
                      "rk-socket pub 'tcp://*:5557' --replay readings.rec --speed 10"}});
    }

    ExitStatus run(const Surroundings& surroundings) override { return Publication(options, surroundings).run(); }
    bool isEndless() const override { return options.repetition.isEndless(); }

private:
    void addReplay(CLI::App& command) {
        addText(command, "--replay", "FILE", options.replay, "send what sub --record has kept, with its timing",
                messageGroup);
        addValue<double>(command, "--speed", "FACTOR", options.speed, "replay faster or slower; 0: without pauses",
                         timeGroup)
            ->transform(number(0.0, 1e9))
            ->default_str("1")
            ->needs(command.get_option("--replay"));
        exclude(command, "--replay", {"MESSAGE", "--file", "--lines", "--whole", "--hex", "--proto", "--interval"});
    }

    PublishOptions options;
};

} // namespace

std::unique_ptr<Command> createPublish(CLI::App& command) {
    return std::make_unique<Publish>(command);
}

} // namespace rk::tools
