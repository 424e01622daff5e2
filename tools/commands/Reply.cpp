#include "cli/NetworkOptions.h"
#include "cli/Options.h"
#include "commands/Command.h"
#include "system/Output.h"
#include "traffic/Answer.h"
#include "traffic/Inbox.h"

namespace rk::tools {

namespace {

struct ReplyOptions {
    SocketSettings socket;
    CodecSettings codec;
    AnswerSettings answer;
    std::optional<std::uint64_t> count;
    InboxSettings inbox;
};

class Replies {
public:
    Replies(const ReplyOptions& optionsToUse, const Surroundings& surroundings)
        : options(optionsToUse),
          output(surroundings.stop),
          codec(makeCodec(options.codec, options.codec.typeOfReplies(), options.codec.type, surroundings.complaints)),
          answer(makeAnswer(options.answer, !options.codec.protoFiles.empty(), *codec, surroundings.complaints,
                            surroundings.stop)),
          socket(socketName(options.socket), options.socket.closePolicy),
          inbox(socket, options.inbox, surroundings.stop, surroundings.complaints) {
        sinks.push_back(makePrintingSink(*codec, output, surroundings.complaints));
        openSocket(socket, rk::socket::Protocol::Rep, options.socket);
    }

    ExitStatus run() {
        for (std::uint64_t answered = 0; !options.count || answered < *options.count; ++answered) {
            const auto event = inbox.await("request", Inbox::Clock::now(), sinks);
            if (event != Inbox::Event::Message) {
                return event == Inbox::Event::Stop ? ExitStatus::Done : ExitStatus::TimedOut;
            }
            serve();
        }
        return ExitStatus::Done;
    }

private:
    /// Of a request of several parts all are printed, and the last one is answered. The reply goes out before anything
    /// can fail that has to do with printing what it answers.
    void serve() {
        auto received = inbox.receive();
        while (inbox.holdsMore()) {
            handOn(received, sinks);
            received = inbox.receive();
        }
        std::string block = received ? answer->to(received->bytes) : std::string();
        socket.send(block.data(), block.size());
        handOn(received, sinks);
        output.flush();
    }

    const ReplyOptions& options;
    Output output;
    std::unique_ptr<Codec> codec;
    std::unique_ptr<Answer> answer;
    rk::socket::Socket socket;
    Inbox inbox;
    MessageSinks sinks;
};

class Reply : public Command {
public:
    explicit Reply(CLI::App& command) {
        options.socket.closePolicy = rk::socket::ClosePolicy::LingerTwoSeconds;
        addEndpoint(command, options.socket, "where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
        addAnswer(command);
        addHex(command, options.codec);
        addFormat(command, options.codec, "requests");
        addSchema(command, options.codec, "requests");
        addReplyType(command, options.codec);
        addCount(command, options.count, "end after N requests");
        addInbox(command, options.inbox, "end, with status 3, when no request has come for TIME");
        addRate(command, options.socket);
        addQueue(command, options.socket, "incoming");
        addNetwork(command, true);
        addExamples(command,
                    {{"Answer with the request, until Ctrl-C", "rk-socket rep 'tcp://*:5559' --echo"},
                     {"Answer one request with a fixed text",
                      "rk-socket rep 'tcp://*:5559' --reply 'at your service' --count 1"},
                     {"Let a command answer", "rk-socket rep 'tcp://*:5559' --command 'tr a-z A-Z'"},
                     {"Answer protobuf requests through jq",
                      "rk-socket rep 'tcp://*:5559' --proto telemetry.proto --type telemetry.Command --reply-type "
                      "telemetry.Answer --command 'jq \"{id, refusal: \\\"not now\\\"}\"'"}});
    }

    ExitStatus run(const Surroundings& surroundings) override { return Replies(options, surroundings).run(); }
    bool isEndless() const override { return !options.count; }

private:
    void addAnswer(CLI::App& command) {
        const char* const group = "Reply (one of these is needed)";
        addValue<std::string>(command, "--reply", "TEXT", options.answer.text, "answer each request with TEXT", group);
        addText(command, "--reply-file", "FILE", options.answer.file, "answer with what is in FILE", group);
        addFlag(command, "--echo", options.answer.echo, "answer with the request", group);
        addText(command, "--command", "COMMAND", options.answer.command,
                "answer with what COMMAND, run by the shell, writes when it is given the request", group);
        exclude(command, "--reply", {"--reply-file", "--echo", "--command"});
        exclude(command, "--reply-file", {"--echo", "--command"});
        exclude(command, "--echo", {"--command"});
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
