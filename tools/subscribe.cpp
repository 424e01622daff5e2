#include "Codec.h"
#include "Command.h"
#include "Inbox.h"
#include "Numbers.h"
#include "Output.h"
#include "PrintingSink.h"
#include "RecordingSink.h"
#include "StatisticsSink.h"
#include "openSocket.h"

#include <algorithm>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

class Subscription {
public:
    explicit Subscription(const Surroundings& surroundings)
        : settings(surroundings.settings),
          complaints(surroundings.complaints),
          output(surroundings.stop),
          socket(socketName(settings), settings.closePolicy),
          inbox(socket, settings.maxSize, surroundings.stop, complaints) {
        if (!settings.stats && settings.record.empty()) {
            codec = makeCodec(settings, "", settings.type, complaints);
        }
        openSocket(socket, settings);
        if (!settings.record.empty()) {
            sinks.push_back(std::make_unique<RecordingSink>(settings.record, settings.count, surroundings.stop));
        }
        const auto now = Clock::now();
        if (settings.stats) {
            sinks.push_back(std::make_unique<StatisticsSink>(output, settings.interval, now));
        }
        if (codec) {
            sinks.push_back(std::make_unique<PrintingSink>(*codec, output, complaints));
        }
        lastArrival = now;
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
        while (!settings.count || taken < *settings.count) {
            auto event = inbox.look();
            if (event == Inbox::Event::Nothing) {
                for (const auto& sink : sinks) {
                    sink->pause(Clock::now());
                }
                event = inbox.wait(std::min(deadline(), due()));
            }
            if (event == Inbox::Event::Stop) {
                return ExitStatus::Done;
            }
            if (event == Inbox::Event::Message) {
                take();
            } else if (Clock::now() >= deadline()) {
                complaints.add("no message within " + described(*settings.timeout) + " on " + socket.debugString());
                return ExitStatus::TimedOut;
            }
        }
        return ExitStatus::Done;
    }

    Clock::time_point deadline() const {
        return settings.timeout ? lastArrival + *settings.timeout : Clock::time_point::max();
    }

    /// When a sink wants to go on.
    Clock::time_point due() const {
        auto earliest = Clock::time_point::max();
        for (const auto& sink : sinks) {
            earliest = std::min(earliest, sink->due());
        }
        return earliest;
    }

    void take() {
        const auto message = inbox.receive();
        lastArrival = message ? message->arrival : Clock::now();
        ++taken;
        for (const auto& sink : sinks) {
            if (message) {
                sink->take(*message);
            }
        }
    }

    const Settings& settings;
    Complaints& complaints;
    Output output;
    rk::socket::Socket socket;
    Inbox inbox;
    std::unique_ptr<Codec> codec;
    std::vector<std::unique_ptr<MessageSink>> sinks;
    Clock::time_point lastArrival;
    std::uint64_t taken = 0;
};

} // namespace

ExitStatus subscribe(const Surroundings& surroundings) {
    return Subscription(surroundings).run();
}

} // namespace rk::tools
