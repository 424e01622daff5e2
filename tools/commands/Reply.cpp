#include "cli/Notes.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "display/Complaints.h"
#include "system/Output.h"
#include "traffic/Answer.h"
#include "traffic/Context.h"
#include "traffic/Inbox.h"
#include "traffic/Outgoing.h"
#include "traffic/Pacer.h"

namespace rk::tools {

namespace {

struct ReplyOptions {
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    AnswerSettings answer;
    Repetition repetition;
    std::optional<std::chrono::nanoseconds> timeout;
};

class Replies {
public:
    Replies(const ReplyOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          complaints(surroundings.complaints),
          output(surroundings.stop),
          codec(options.codec, options.envelope, options.codec.typeOfReplies(), options.codec.type, complaints),
          answer(makeAnswer(options.answer, codec, complaints, surroundings.stop)),
          context(options.socket.keys, surroundings.stop),
          wire(context, replying, options.socket.endpoints.front(), options.socket, surroundings.stop, complaints),
          inbox({&wire}, sinks, options.timeout, options.envelope.needsTime(), surroundings.stop, complaints),
          pacer(options.socket.rate, surroundings.stop) {
        sinks.push_back(makePrintingSink(codec, output, complaints));
        wire.open();
    }

    ExitStatus run() {
        const ExitStatus status = serveAll();
        wire.close(options.socket.closePolicy.value_or(rk::socket::ClosePolicy::LingerTwoSeconds));
        return status;
    }

private:
    ExitStatus serveAll() {
        for (std::uint64_t answered = 0; options.repetition.wantsMore(answered); ++answered) {
            const auto event = inbox.next("request");
            if (event == Inbox::Event::Stop || event == Inbox::Event::Timeout) {
                return event == Inbox::Event::Stop ? ExitStatus::Done : ExitStatus::TimedOut;
            }
            serve(event);
        }
        return ExitStatus::Done;
    }

    /// Replies first, since printing the request can fail.
    void serve(Inbox::Event event) {
        const bool isWhole = event == Inbox::Event::Message;
        const Parts reply = isWhole ? answer(inbox.parts()) : Parts{""};
        wire.send(reply);
        pacer.pauseAfter(reply.back().size());
        if (isWhole) {
            inbox.handOn();
        }
        output.flush();
    }

    const ReplyOptions& options;
    Complaints& complaints;
    Output output;
    MessageCodec codec;
    Answer answer;
    Context context;
    Wire wire;
    MessageSinks sinks;
    Inbox inbox;
    Pacer pacer;
};

class Reply : public Command {
public:
    explicit Reply(CLI::App& command) {
        addEndpoint(command, options.socket, "where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
        addMessages(command, options.codec, options.envelope, Direction::Both);
        addAnswer(command);
        addCount(command, options.repetition, "end after N requests");
        addTime(command, "-t,--timeout", options.timeout, "end with status 3 when no request arrives for TIME");
        addSending(command, options.socket, "linger");
        addSize(command, "--max-size", options.socket.maxSize, "report longer requests, and send an empty reply");
        addSocket(command, options.socket, "incoming", true);
        endHelp(command, {notes::messages, notes::encryption},
                {{"Reply with the request, until Ctrl-C", "rk-socket rep 'tcp://*:5559' --echo"},
                 {"Reply to one request with a fixed text",
                  "rk-socket rep 'tcp://*:5559' --reply 'at your service' --count 1"},
                 {"Reply with the output of a command", "rk-socket rep 'tcp://*:5559' --command 'tr a-z A-Z'"},
                 {"Reply to protobuf requests with jq",
                  "rk-socket rep 'tcp://*:5559' --proto telemetry.proto --type telemetry.Command --reply-type "
                  "telemetry.Answer --command 'jq \"{id, refusal: \\\"not now\\\"}\"'"}});
    }

    ExitStatus run(const Surroundings& surroundings) override { return Replies(options, surroundings).run(); }
    bool isEndless() const override { return !options.repetition.count || options.repetition.isEndless(); }

private:
    void addAnswer(CLI::App& command) {
        const char* const group = "Reply (one of these is needed)";
        addValue<std::string>(command, "--reply", "TEXT", options.answer.text, "reply with TEXT", group);
        addText(command, "--reply-file", "FILE", options.answer.file, "reply with the contents of FILE", group);
        addFlag(command, "--echo", options.answer.echo, "reply with the request", group);
        addText(command, "--command", "COMMAND", options.answer.command,
                "reply with the output of a shell command, which reads the request from its standard input", group);
        addTime(command, "--command-timeout", options.answer.limits.time,
                "kill COMMAND after TIME, and send an empty reply")
            ->needs(command.get_option("--command"));
        addSize(command, "--command-output", options.answer.limits.output,
                "kill COMMAND when it writes more than SIZE, and send an empty reply")
            ->needs(command.get_option("--command"));
        exclude(command, "--reply", {"--reply-file", "--echo", "--command"});
        exclude(command, "--reply-file", {"--echo", "--command"});
        exclude(command, "--echo", {"--command"});
        exclude(command, "--hex", {"--echo", "--command"});
        exclude(command, "--echo", {"--reply-type"});
        command.callback([&answer = options.answer] {
            if (!answer.text && !answer.file && !answer.echo && !answer.command) {
                throw CLI::RequiredError("--reply, --reply-file, --echo or --command");
            }
        });
    }

    ReplyOptions options;
};

} // namespace

std::unique_ptr<Command> createReply(CLI::App& command) {
    return std::make_unique<Reply>(command);
}

} // namespace rk::tools
