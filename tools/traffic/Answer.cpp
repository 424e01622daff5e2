#include "traffic/Answer.h"

#include "display/Complaints.h"
#include "messages/MessageCodec.h"
#include "system/InputFile.h"
#include "system/StopSignals.h"

namespace rk::tools {

namespace {

const Parts emptyReply = {""};

Parts encoded(const std::string& text, const std::string& place, MessageCodec& codec) {
    try {
        return codec.encode(text);
    } catch (const CodecError& error) {
        throw std::runtime_error(place + ": " + error.what());
    }
}

Parts replyFrom(const ShellResult& result, MessageCodec& codec, Complaints& complaints) {
    if (result.exceeded) {
        complaints.add("the command was killed, and the request answered with an empty reply: " + *result.exceeded);
        return emptyReply;
    }
    if (result.status != 0) {
        complaints.add("the command ended with status " + std::to_string(result.status));
    }
    if (!codec.hasSchema()) {
        return {result.output};
    }
    return result.status != 0 && result.output.empty() ? emptyReply : codec.encode(result.output);
}

} // namespace

Answer makeAnswer(const AnswerSettings& settings, MessageCodec& codec, Complaints& complaints,
                  const StopSignals& stop) {
    if (settings.echo) {
        return [all = codec.keepsParts()](const std::vector<std::string_view>& request) {
            return Parts(all ? request.begin() : request.end() - 1, request.end());
        };
    }
    if (settings.command) {
        return [&](const std::vector<std::string_view>& request) {
            try {
                const auto result = runInShell(*settings.command, codec.forCommand(request), settings.limits, stop);
                return stop.requested() ? emptyReply : replyFrom(result, codec, complaints);
            } catch (const CodecError& error) {
                complaints.add(std::string("answered with an empty reply: ") + error.what());
                return emptyReply;
            }
        };
    }
    Parts reply;
    if (settings.file) {
        InputFile file(*settings.file, stop);
        reply = encoded(file.readAll(), file.name(), codec);
    } else {
        reply = encoded(*settings.text, "--reply", codec);
    }
    return [reply](const std::vector<std::string_view>& /*request*/) { return reply; };
}

} // namespace rk::tools
