#include "traffic/Answer.h"

#include "display/Complaints.h"
#include "messages/MessageCodec.h"
#include "system/InputFile.h"
#include "system/StopSignals.h"

namespace rk::tools {

namespace {

/// All parts, or the last one if messages are not handled in parts.
class Echo : public Answer {
public:
    explicit Echo(bool keepParts) : keepsParts(keepParts) {}

    Parts to(const std::vector<std::string_view>& request) override {
        return {keepsParts ? request.begin() : request.end() - 1, request.end()};
    }

private:
    bool keepsParts;
};

class FixedAnswer : public Answer {
public:
    explicit FixedAnswer(Parts messageToSend) : message(std::move(messageToSend)) {}
    Parts to(const std::vector<std::string_view>& /*request*/) override { return message; }

private:
    Parts message;
};

/// The output of a command that gets the request: as bytes, or as JSON if there is a schema.
class CommandAnswer : public Answer {
public:
    CommandAnswer(const AnswerSettings& settings, MessageCodec& codecToUse, Complaints& complaintsToUse,
                  const StopSignals& stopSignals)
        : command(*settings.command, settings.limits, stopSignals),
          codec(codecToUse),
          complaints(complaintsToUse),
          stop(stopSignals) {}

    Parts to(const std::vector<std::string_view>& request) override {
        try {
            return replyFrom(command.run(codec.forCommand(request)));
        } catch (const CodecError& error) {
            complaints.add(std::string("answered with an empty block: ") + error.what());
            return {""};
        }
    }

private:
    Parts replyFrom(const ShellCommand::Result& result) {
        if (stop.requested()) {
            return {""};
        }
        if (result.exceeded) {
            complaints.add("the command was killed, and the request answered with an empty block: " + *result.exceeded);
            return {""};
        }
        if (result.status != 0) {
            complaints.add("the command ended with status " + std::to_string(result.status));
        }
        const bool isNothing = codec.hasSchema() && result.status != 0 && result.output.empty();
        return isNothing ? Parts{""} : codec.hasSchema() ? codec.encode(result.output) : Parts{result.output};
    }

    ShellCommand command;
    MessageCodec& codec;
    Complaints& complaints;
    const StopSignals& stop;
};

} // namespace

std::unique_ptr<Answer> makeAnswer(const AnswerSettings& settings, MessageCodec& codec, Complaints& complaints,
                                   const StopSignals& stop) {
    if (settings.echo) {
        return std::make_unique<Echo>(codec.keepsParts());
    }
    if (settings.command) {
        return std::make_unique<CommandAnswer>(settings, codec, complaints, stop);
    }
    std::string text = settings.text.value_or("");
    std::string place = "--reply";
    if (settings.file) {
        InputFile file(*settings.file, stop);
        text = file.readAll();
        place = file.name();
    }
    try {
        return std::make_unique<FixedAnswer>(codec.encode(text));
    } catch (const CodecError& error) {
        throw std::runtime_error(place + ": " + error.what());
    }
}

} // namespace rk::tools
