#include "traffic/Answer.h"

#include "display/Complaints.h"
#include "messages/Codec.h"
#include "system/InputFile.h"
#include "system/ShellCommand.h"
#include "system/StopSignals.h"

namespace rk::tools {

namespace {

class Echo : public Answer {
public:
    std::string to(std::string_view request) override { return std::string(request); }
};

class FixedAnswer : public Answer {
public:
    explicit FixedAnswer(std::string blockToSend) : block(std::move(blockToSend)) {}
    std::string to(std::string_view /*request*/) override { return block; }

private:
    std::string block;
};

/// The output of a command that gets the request: as bytes, or as JSON if there is a schema.
class CommandAnswer : public Answer {
public:
    CommandAnswer(const std::string& commandToRun, bool hasSchema, Codec& codecToUse, Complaints& complaintsToUse,
                  const StopSignals& stopSignals)
        : command(commandToRun, stopSignals),
          withSchema(hasSchema),
          codec(codecToUse),
          complaints(complaintsToUse),
          stop(stopSignals) {}

    std::string to(std::string_view request) override {
        try {
            const auto result = command.run(withSchema ? codec.decode(request) : std::string(request));
            if (result.status != 0 && !stop.requested()) {
                complaints.add("the command ended with status " + std::to_string(result.status));
            }
            if (stop.requested() || (withSchema && result.status != 0 && result.output.empty())) {
                return {};
            }
            return withSchema ? codec.encode(result.output) : result.output;
        } catch (const CodecError& error) {
            complaints.add(std::string("answered with an empty block: ") + error.what());
            return {};
        }
    }

private:
    ShellCommand command;
    bool withSchema;
    Codec& codec;
    Complaints& complaints;
    const StopSignals& stop;
};

} // namespace

std::unique_ptr<Answer> makeAnswer(const AnswerSettings& settings, bool withSchema, Codec& codec,
                                   Complaints& complaints, const StopSignals& stop) {
    if (settings.echo) {
        return std::make_unique<Echo>();
    }
    if (settings.command) {
        return std::make_unique<CommandAnswer>(*settings.command, withSchema, codec, complaints, stop);
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
