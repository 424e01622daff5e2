#include "traffic/Probe.h"

#include "cli/Notes.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "system/Output.h"

namespace rk::tools {

namespace {

class Probing : public Command {
public:
    explicit Probing(CLI::App& command) {
        addEndpoints(command, socket, "tcp://HOST:PORT or ipc://PATH");
        addTime(command, "-t,--timeout", timeout,
                "wait TIME at most for the connection, the greeting and the description, each");
        addKeys(command, files);
        endHelp(command, {notes::encryption},
                {{"Which ZeroMQ socket listens there?", "rk-socket probe tcp://localhost:5555"},
                 {"Do both sides trust each other's keys?",
                  "rk-socket check tcp://localhost:5562 --key my.key --trust trusted-keys"}});
    }

    ExitStatus run(const Surroundings& surroundings) override {
        Output output(surroundings.stop);
        const std::optional<Keys> keys = files.own ? std::make_optional<Keys>(files) : std::nullopt;
        for (const std::string& endpoint : socket.endpoints) {
            const auto limit = std::chrono::ceil<std::chrono::milliseconds>(timeout);
            const auto target = rk::socket::SocketEndpoint::FromString(endpoint);
            const Findings findings = probe(target, keys ? &*keys : nullptr, {limit, true, surroundings.stop});
            if (findings.trouble) {
                output.flush();
                surroundings.complaints.add(endpoint + ": " + *findings.trouble);
            } else {
                output.write(endpoint + ": " + findings.description + "\n");
            }
        }
        output.flush();
        return ExitStatus::Done;
    }

private:
    SocketSettings socket;
    KeyFiles files;
    std::chrono::nanoseconds timeout = std::chrono::seconds(2);
};

} // namespace

std::unique_ptr<Command> createProbe(CLI::App& command) {
    return std::make_unique<Probing>(command);
}

} // namespace rk::tools
