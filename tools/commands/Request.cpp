#include "cli/NetworkOptions.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Numbers.h"
#include "display/RoundTrips.h"
#include "system/Output.h"
#include "traffic/Inbox.h"
#include "traffic/Outgoing.h"

#include <cstdio>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

struct RequestOptions {
    SocketSettings socket;
    CodecSettings codec;
    SourceSettings source;
    Repetition repetition;
    InboxSettings inbox;
};

class Requests {
public:
    Requests(const RequestOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          output(surroundings.stop),
          codec(makeCodec(options.codec, options.codec.type, options.codec.typeOfReplies(), surroundings.complaints)),
          outgoing(options.source, options.repetition, *codec, surroundings.complaints, surroundings.stop),
          socket(socketName(options.socket), options.socket.closePolicy),
          inbox(socket, options.inbox, surroundings.stop, surroundings.complaints) {
        sinks.push_back(makePrintingSink(*codec, output, surroundings.complaints));
        openSocket(socket, rk::socket::Protocol::Req, options.socket);
    }

    ExitStatus run() {
        bool goOn = true;
        while (goOn) {
            auto block = outgoing.next();
            goOn = block && exchange(*block);
        }
        output.flush();
        if (options.repetition.count) {
            report();
        }
        return sent == roundTrips.count() + unfinished ? ExitStatus::Done : ExitStatus::TimedOut;
    }

private:
    /// False when told to stop.
    bool exchange(std::string& block) {
        const auto start = Clock::now();
        socket.send(block.data(), block.size());
        ++sent;
        const auto event = inbox.await("reply", start, sinks);
        if (event == Inbox::Event::Message) {
            take(start);
        }
        unfinished += event == Inbox::Event::Stop ? 1 : 0;
        return event != Inbox::Event::Stop;
    }

    /// A reply of several parts counts as one, and is printed as several.
    void take(Clock::time_point start) {
        const auto received = inbox.receive();
        roundTrips.add(Clock::now() - start);
        handOn(received, sinks);
        while (inbox.holdsMore()) {
            handOn(inbox.receive(), sinks);
        }
        if (!options.repetition.count) {
            output.flush();
            std::fprintf(stderr, "round trip %s ms\n", fixed(roundTrips.last(), 3).c_str());
        }
    }

    void report() const {
        std::fprintf(stderr, "%s requests, %s replies\n", std::to_string(sent).c_str(),
                     std::to_string(roundTrips.count()).c_str());
        for (const std::string& line : roundTrips.distribution()) {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
    }

    const RequestOptions& options;
    Output output;
    std::unique_ptr<Codec> codec;
    Outgoing outgoing;
    rk::socket::Socket socket;
    Inbox inbox;
    MessageSinks sinks;
    RoundTrips roundTrips;
    std::uint64_t sent = 0;
    std::uint64_t unfinished = 0;
};

class Request : public Command {
public:
    explicit Request(CLI::App& command) {
        addEndpoint(command, options.socket, "tcp://HOST:PORT or ipc://PATH, where somebody answers");
        addContents(command, options.source, "what to ask");
        addHex(command, options.codec);
        addFormat(command, options.codec, "replies");
        addSchema(command, options.codec, "requests");
        addReplyType(command, options.codec);
        addCount(command, options.repetition.count,
                 "send N requests, beginning again at the first when there are no more, and show how the round-trip "
                 "times are distributed; 0: for ever");
        options.inbox.timeout = std::chrono::seconds(5);
        addInbox(command, options.inbox, "wait TIME for each reply; status 3 if one did not come");
        addTime(command, "-i,--interval", options.repetition.interval, "wait TIME between requests");
        addRate(command, options.socket);
        addQueue(command, options.socket, "outgoing");
        addNetwork(command, false);
        addExamples(command,
                    {{"Ask once, and see how long it takes", "rk-socket req tcp://localhost:5558 'are you there?'"},
                     {"How are the round-trip times distributed?",
                      "rk-socket req tcp://localhost:5558 ping --count 1000 >/dev/null"},
                     {"A protobuf request",
                      "rk-socket req tcp://localhost:5556 --proto telemetry.proto --type telemetry.Command "
                      "--reply-type telemetry.Answer '{\"id\": 1, \"action\": \"STATUS\"}'"},
                     {"Bytes from a file, the reply into another",
                      "rk-socket req tcp://localhost:5558 --file request.bin --format raw >reply.bin"}});
    }

    ExitStatus run(const Surroundings& surroundings) override { return Requests(options, surroundings).run(); }
    bool isEndless() const override { return options.repetition.isEndless(); }

private:
    RequestOptions options;
};

} // namespace

std::unique_ptr<Command> createRequest(CLI::App& command) {
    return std::make_unique<Request>(command);
}

} // namespace rk::tools
