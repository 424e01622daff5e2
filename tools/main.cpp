#include "Command.h"
#include "CommandLine.h"
#include "Complaints.h"
#include "ExitStatus.h"
#include "Log.h"
#include "Output.h"
#include "StopSignals.h"

#include <exception>

namespace rk::tools {

namespace {

bool isEndless(const Settings& settings) {
    const bool awaits =
        settings.protocol == rk::socket::Protocol::Sub || settings.protocol == rk::socket::Protocol::Rep;
    return awaits ? !settings.count : settings.count && *settings.count == 0;
}

ExitStatus runCommand(const Surroundings& surroundings) {
    switch (surroundings.settings.protocol) {
    case rk::socket::Protocol::Sub:
        return subscribe(surroundings);
    case rk::socket::Protocol::Pub:
        return publish(surroundings);
    case rk::socket::Protocol::Req:
        return request(surroundings);
    case rk::socket::Protocol::Rep:
        return reply(surroundings);
    case rk::socket::Protocol::Undef:
        break;
    }
    return ExitStatus::Usage;
}

/// A reader that has gone has seen what it wanted.
ExitStatus runWhileRead(const Surroundings& surroundings) {
    try {
        return runCommand(surroundings);
    } catch (const ReaderGone&) {
        return ExitStatus::Done;
    }
}

int work(const Settings& settings, const StopSignals& stop, Complaints& complaints) {
    if (settings.verbose) {
        showLibraryLog();
    }
    const ExitStatus status = runWhileRead({settings, stop, complaints});
    if (status != ExitStatus::Done) {
        return static_cast<int>(status);
    }
    if (complaints.any()) {
        return static_cast<int>(ExitStatus::Failed);
    }
    return stop.requested() && !isEndless(settings) ? 128 + stop.signal() : 0;
}

int run(int argc, const char* const* argv) {
    const StopSignals stop;
    Complaints complaints;
    try {
        const auto parsed = parseCommandLine(argc, argv);
        if (const auto* const information = std::get_if<Information>(&parsed)) {
            Output output(stop);
            output.write(information->text);
            output.flush();
            return 0;
        }
        if (const auto* const misuse = std::get_if<Misuse>(&parsed)) {
            complaints.add(misuse->text);
            return static_cast<int>(ExitStatus::Usage);
        }
        return work(std::get<Settings>(parsed), stop, complaints);
    } catch (const ReaderGone&) {
        return 0;
    } catch (const std::exception& failure) {
        complaints.add(failure.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}

} // namespace

} // namespace rk::tools

int main(int argc, char** argv) {
    return rk::tools::run(argc, argv);
}
