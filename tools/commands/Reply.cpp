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
    InboxSettings inbox;
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
          wire(context, Pattern::Reply, options.socket.endpoints.front(), options.socket, surroundings.stop,
               complaints),
          inbox({&wire}, sinks, options.inbox, surroundings.stop, complaints),
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

    /// The reply goes out before anything can fail that has to do with printing what it answers.
    void serve(Inbox::Event event) {
        const bool isWhole = event == Inbox::Event::Message;
        const Parts reply = isWhole ? answer->to(inbox.parts()) : Parts{""};
        wire.send(reply, Inbox::Clock::time_point::max());
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
    std::unique_ptr<Answer> answer;
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
        addHex(command, options.codec);
        addFormat(command, options.codec, "requests");
        addEnvelope(command, options.envelope);
        addSchema(command, options.codec, options.envelope, "requests");
        addReplyType(command, options.codec);
        addAnswer(command);
        addCount(command, options.repetition, "end after N requests");
        addInbox(command, options.inbox, "end, with status 3, when no request has come for TIME");
        addRate(command, options.socket);
        addSocket(command, options.socket, "incoming", true);
        addClosePolicy(command, options.socket, "linger");
        addExamples(command,
                    {{"Answer with the request, until Ctrl-C", "rk-socket rep 'tcp://*:5559' --echo"},
                     {"Answer one request with a fixed text",
                      "rk-socket rep 'tcp://*:5559' --reply 'at your service' --count 1"},
                     {"Let a command answer", "rk-socket rep 'tcp://*:5559' --command 'tr a-z A-Z'"},
                     {"Answer protobuf requests through jq",
                      "rk-socket rep 'tcp://*:5559' --proto telemetry.proto --type telemetry.Command --reply-type "
                      "telemetry.Answer --command 'jq \"{id, refusal: \\\"not now\\\"}\"'"}});
    }

    ExitStatus run(const Surroundings& surroundings) override {
        options.socket.maxSize = options.inbox.maxSize;
        options.inbox.timed = options.envelope.needsTime();
        return Replies(options, surroundings).run();
    }
    bool isEndless() const override { return !options.repetition.count || options.repetition.isEndless(); }

private:
    void addAnswer(CLI::App& command) {
        const char* const group = "Reply (one of these is needed)";
        addValue<std::string>(command, "--reply", "TEXT", options.answer.text, "answer each request with TEXT", group);
        addText(command, "--reply-file", "FILE", options.answer.file, "answer with what is in FILE", group);
        addFlag(command, "--echo", options.answer.echo, "answer with the request", group);
        addText(command, "--command", "COMMAND", options.answer.command,
                "answer with what COMMAND, run by the shell, writes when it is given the request", group);
        addTime(command, "--command-timeout", options.answer.limits.time,
                "kill COMMAND after TIME, and answer with an empty block");
        command.get_option("--command-timeout")->needs(command.get_option("--command"));
        addValue<std::size_t>(command, "--command-output", "SIZE", options.answer.limits.output,
                              "kill COMMAND when it writes more than SIZE, and answer with an empty block", socketGroup)
            ->transform(size(2147483647))
            ->default_str("64MiB")
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
