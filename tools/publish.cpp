#include "Codec.h"
#include "Command.h"
#include "Outgoing.h"
#include "ProgressBar.h"
#include "RecordingReader.h"
#include "openSocket.h"

#include <algorithm>
#include <memory>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

// In nanoseconds, a year. No recording means more, but a damaged one may say so.
constexpr double longest = 365.0 * 24 * 3600 * 1e9;

class Publication {
public:
    explicit Publication(const Surroundings& surroundingsToUse)
        : surroundings(surroundingsToUse),
          settings(surroundings.settings),
          stop(surroundings.stop),
          socket(socketName(settings), settings.closePolicy) {}

    ExitStatus run() { return settings.replay.empty() ? send() : replay(); }

private:
    ExitStatus send() {
        const auto codec = makeCodec(settings, settings.type, "", surroundings.complaints);
        Outgoing outgoing(settings, *codec, surroundings.complaints, stop);
        open();
        while (auto block = outgoing.next()) {
            socket.send(block->data(), block->size());
        }
        return ExitStatus::Done;
    }

    ExitStatus replay() {
        auto recording = std::make_unique<RecordingReader>(settings.replay, stop);
        ProgressBar bar;
        open();
        while (play(*recording, bar) && settings.count && settings.replay != "-") {
            recording = std::make_unique<RecordingReader>(settings.replay, stop);
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

    bool wantsMore() const { return !settings.count || *settings.count == 0 || sent < *settings.count; }

    /// Opens the socket, and gives subscribers that are waiting for it the time to find it.
    void open() {
        openSocket(socket, settings);
        stop.sleepUntil(Clock::now() + settings.delay);
    }

    Clock::time_point dueTime(Clock::time_point start, std::chrono::nanoseconds time) const {
        if (settings.speed <= 0.0) {
            return start;
        }
        const double scaled = static_cast<double>(time.count()) / settings.speed;
        return start + std::chrono::nanoseconds(static_cast<std::int64_t>(std::clamp(scaled, 0.0, longest)));
    }

    const Surroundings& surroundings;
    const Settings& settings;
    const StopSignals& stop;
    rk::socket::Socket socket;
    std::uint64_t sent = 0;
};

} // namespace

ExitStatus publish(const Surroundings& surroundings) {
    return Publication(surroundings).run();
}

} // namespace rk::tools
