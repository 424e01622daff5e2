#include "Codec.h"
#include "Command.h"
#include "Outgoing.h"
#include "ProgressBar.h"
#include "RecordingReader.h"
#include "openSocket.h"

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

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
        RecordingReader recording(settings.replay, stop);
        ProgressBar bar;
        open();
        const auto start = Clock::now();
        std::uint64_t sent = 0;
        while (!settings.count || *settings.count == 0 || sent < *settings.count) {
            auto entry = recording.next();
            if (!entry || !stop.sleepUntil(dueTime(start, entry->time))) {
                break;
            }
            socket.send(entry->block.data(), entry->block.size());
            ++sent;
            if (const auto now = Clock::now(); bar.due(now)) {
                bar.show(recording.progress(), std::to_string(sent) + " messages", now);
            }
        }
        bar.show(recording.progress(), std::to_string(sent) + " messages", Clock::now());
        return ExitStatus::Done;
    }

    /// Opens the socket, and gives subscribers that are waiting for it the time to find it.
    void open() {
        openSocket(socket, settings);
        stop.sleepUntil(Clock::now() + settings.delay);
    }

    Clock::time_point dueTime(Clock::time_point start, std::chrono::nanoseconds time) const {
        if (settings.speed <= 0.0) {
            return start;
        }
        const std::chrono::duration<double, std::nano> scaled(static_cast<double>(time.count()) / settings.speed);
        return start + std::chrono::duration_cast<std::chrono::nanoseconds>(scaled);
    }

    const Surroundings& surroundings;
    const Settings& settings;
    const StopSignals& stop;
    rk::socket::Socket socket;
};

} // namespace

ExitStatus publish(const Surroundings& surroundings) {
    return Publication(surroundings).run();
}

} // namespace rk::tools
