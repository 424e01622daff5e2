// The operator watches a station for about ten seconds, sends it commands, and reports whether anything was lost.

#include "Commander.h"
#include "ReadingLog.h"
#include "Summary.h"
#include "telemetry.pb.h"

#include <rk/socket/Network.h>
#include <rk/socket/utils/Subscriber.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace telemetry {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds patienceForTheFirst = 20s;
constexpr std::chrono::milliseconds patience = 5s;
constexpr std::chrono::milliseconds pauseLength = 1s;
constexpr unsigned int peerTimeoutSeconds = 10;
constexpr unsigned int silenceLimitSeconds = 10; // longer than a pause of the station
constexpr std::int64_t secondUs = 1000000;
constexpr int exitUsage = 2;

void say(const std::string& text) {
    std::cout << "operator: " << text << std::endl;
}

/// Prints a line for every second of the station's clock.
class Watch {
public:
    explicit Watch(ReadingLog& readingLog)
        : log(readingLog),
          before(log.waitFor([](const Reading&) { return true; }, patienceForTheFirst)),
          due(before.time_us() + secondUs) {}

    void seconds(int count) {
        for (int second = 0; second < count; ++second) {
            printNextLine();
        }
    }

private:
    void printNextLine() {
        const Reading now = log.waitFor([this](const Reading& latest) { return latest.time_us() >= due; }, patience);
        const std::uint64_t received = log.counts().received;
        std::ostringstream line;
        line << "readings " << std::setw(3) << received - receivedBefore << "   " << summary(before, now);
        say(line.str());
        before = now;
        receivedBefore = received;
        // Do not print lines for a pause of the station.
        due = std::max(due, now.time_us() - secondUs / 2) + secondUs;
    }

    ReadingLog& log;
    Reading before;
    std::uint64_t receivedBefore = 0;
    std::int64_t due;
};

Answer command(Commander& commander, const std::string& what, Command::Action action, std::uint32_t intervalMs = 0) {
    Answer answer = commander.ask(action, intervalMs);
    say(what + ": " +
        (answer.refusal().empty() ? "done, the station is " + std::string(answer.paused() ? "paused" : "running") +
                                        " at " + std::to_string(answer.interval_ms()) + " ms"
                                  : "refused, " + answer.refusal()));
    return answer;
}

/// Pauses the station. Expects every reading that it sent before, and none after.
void pauseStation(Commander& commander, ReadingLog& log) {
    const std::uint64_t last = command(commander, "pause", Command::PAUSE).last_sequence();
    log.waitFor([last](const Reading& latest) { return latest.sequence() >= last; }, patience);
    if (!log.staysSilent(pauseLength)) {
        throw std::runtime_error("the station goes on although it is paused");
    }
    say("no reading after number " + std::to_string(last) + " for " + std::to_string(pauseLength.count()) + " ms");
}

void commandAndWatch(Commander& commander, ReadingLog& log) {
    Watch watch(log);
    command(commander, "status", Command::STATUS);
    watch.seconds(2);

    command(commander, "an interval of 10 ms", Command::SET_INTERVAL, 10);
    watch.seconds(2);
    command(commander, "an interval of 0 ms", Command::SET_INTERVAL, 0);
    command(commander, "an interval of 50 ms", Command::SET_INTERVAL, 50);
    watch.seconds(1);

    say("sends two requests in a row: ZeroMQ rejects the second, the library repairs the socket");
    commander.abandon(Command::STATUS);
    command(commander, "status, asked on the repaired socket", Command::STATUS);
    watch.seconds(2);

    pauseStation(commander, log);
    command(commander, "resume", Command::RESUME);
    watch.seconds(2);
}

/// Prints the counts. Returns whether nothing was lost.
bool report(const ReadingLog::Counts& readings, const Commander::Counts& commands) {
    say("received " + std::to_string(readings.received) + " readings (" + std::to_string(readings.first) + " to " +
        std::to_string(readings.last) + "), gaps " + std::to_string(readings.gaps) + "; commands sent " +
        std::to_string(commands.sent) + ", answered " + std::to_string(commands.answered) + ", abandoned on purpose " +
        std::to_string(commands.abandoned) + "; jams repaired " + std::to_string(commands.repaired));
    return readings.gaps == 0 && commands.answered == commands.sent - commands.abandoned &&
           commands.repaired == commands.abandoned;
}

bool run(const std::string& readingsEndpoint, const std::string& commandsEndpoint) {
    rk::socket::Network::setPeerTimeout(peerTimeoutSeconds);
    rk::socket::Network::setSilenceLimit(silenceLimitSeconds);
    ReadingLog log;
    rk::socket::utils::Subscriber<Reading> listener("operator readings",
                                                    [&log](const Reading& reading) { log.add(reading); });
    std::string error;
    if (!listener.addListenEndpoint(readingsEndpoint, error) || !listener.start(error)) {
        throw std::runtime_error(error);
    }
    Commander commander(commandsEndpoint);
    try {
        commandAndWatch(commander, log);
    } catch (const std::exception&) {
        report(log.counts(), commander.counts());
        throw;
    }
    if (!listener.stop(error)) {
        throw std::runtime_error(error);
    }
    return report(log.counts(), commander.counts());
}

} // namespace

} // namespace telemetry

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " READINGS_ENDPOINT COMMANDS_ENDPOINT\n"
                  << "for instance: " << argv[0] << " tcp://localhost:5555 tcp://localhost:5556" << std::endl;
        return telemetry::exitUsage;
    }
    try {
        return telemetry::run(argv[1], argv[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& failure) {
        std::cerr << "operator: " << failure.what() << std::endl;
        return EXIT_FAILURE;
    }
}
