#include "cli/Notes.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Numbers.h"
#include "display/RoundTrips.h"
#include "system/Output.h"
#include "traffic/Context.h"
#include "traffic/Inbox.h"
#include "traffic/Outgoing.h"
#include "traffic/Pacer.h"

#include <cstdio>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

struct RequestOptions {
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    SourceSettings source;
    Repetition repetition;
    std::optional<std::chrono::nanoseconds> timeout = std::chrono::seconds(5);
};

class Requests {
public:
    Requests(const RequestOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          output(surroundings.stop),
          codec(options.codec, options.envelope, options.codec.type, options.codec.typeOfReplies(),
                surroundings.complaints),
          outgoing(options.source, options.repetition, codec, surroundings.complaints, surroundings.stop),
          context(options.socket.keys, surroundings.stop),
          wire(context, requesting, options.socket.endpoints.front(), options.socket, surroundings.stop,
               surroundings.complaints),
          inbox({&wire}, sinks, options.timeout, options.envelope.needsTime(), surroundings.stop,
                surroundings.complaints),
          pacer(options.socket.rate, surroundings.stop) {
        sinks.push_back(makePrintingSink(codec, output, surroundings.complaints));
        wire.open();
    }

    ExitStatus run() {
        bool goOn = true;
        while (goOn) {
            const auto message = outgoing.next();
            goOn = message && exchange(*message);
        }
        output.flush();
        if (options.repetition.count) {
            report();
        }
        wire.close(closePolicy());
        return sent == roundTrips.count() + unfinished ? ExitStatus::Done : ExitStatus::TimedOut;
    }

private:
    /// Returns false after a signal.
    bool exchange(const Parts& message) {
        const auto start = Clock::now();
        const auto deadline = options.timeout ? start + *options.timeout : Clock::time_point::max();
        const bool handedOver = wire.send(message, deadline);
        ++sent;
        const auto event = inbox.next("reply", start);
        if (event == Inbox::Event::Message || event == Inbox::Event::TooLong) {
            take(start, event);
            pacer.pauseAfter(message.back().size());
        } else if (event == Inbox::Event::Timeout) {
            renew(handedOver);
        }
        unfinished += event == Inbox::Event::Stop ? 1 : 0;
        return event != Inbox::Event::Stop;
    }

    void take(Clock::time_point start, Inbox::Event event) {
        roundTrips.add(Clock::now() - start);
        if (event == Inbox::Event::Message) {
            inbox.handOn();
        }
        if (!options.repetition.count) {
            output.flush();
            std::fprintf(stderr, "round trip %s ms\n", fixed(roundTrips.last(), 3).c_str());
        }
    }

    /// A socket that waits for a reply cannot send. Replaces it.
    void renew(bool handedOver) {
        if (handedOver) {
            wire.close(closePolicy());
            wire.open();
        }
    }

    rk::socket::ClosePolicy::ClosePolicy closePolicy() const {
        return options.socket.closePolicy.value_or(rk::socket::ClosePolicy::DropPending);
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
    MessageCodec codec;
    Outgoing outgoing;
    Context context;
    Wire wire;
    MessageSinks sinks;
    Inbox inbox;
    Pacer pacer;
    RoundTrips roundTrips;
    std::uint64_t sent = 0;
    std::uint64_t unfinished = 0;
};

class Request : public Command {
public:
    explicit Request(CLI::App& command) {
        addEndpoint(command, options.socket, "tcp://HOST:PORT or ipc://PATH, where the server listens");
        addContents(command, options.source, "the requests");
        addMessages(command, options.codec, options.envelope, Direction::Both);
        addCount(command, options.repetition,
                 "send N requests, from the first again when there are no more, and show the distribution of the "
                 "round-trip times");
        addTime(command, "-t,--timeout", options.timeout, "wait TIME for each reply; status 3 if one did not arrive");
        addTime(command, "-i,--interval", options.repetition.interval, "wait TIME between requests");
        addSending(command, options.socket, "drop");
        addSize(command, "--max-size", options.socket.maxSize, "report and leave out longer replies");
        addSocket(command, options.socket, "outgoing", false);
        endHelp(
            command, {notes::messages, notes::encryption},
            {{"Send one request, and see the round-trip time", "rk-socket req tcp://localhost:5558 'are you there?'"},
             {"The distribution of a thousand round-trip times",
              "rk-socket req tcp://localhost:5558 ping --count 1000 >/dev/null"},
             {"Send a protobuf request",
              "rk-socket req tcp://localhost:5556 --proto telemetry.proto --type telemetry.Command "
              "--reply-type telemetry.Answer '{\"id\": 1, \"action\": \"STATUS\"}'"},
             {"Send the bytes of a file, and write the reply to another",
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
