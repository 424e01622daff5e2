#include "traffic/Outgoing.h"

#include "display/Complaints.h"
#include "messages/MessageCodec.h"
#include "system/StopSignals.h"

#include <algorithm>
#include <utility>

namespace rk::tools {

Outgoing::Outgoing(SourceSettings sourceSettings, const Repetition& repetitionToKeep, MessageCodec& codecToUse,
                   Complaints& complaintsToUse, const StopSignals& stopSignals)
    : source(std::move(sourceSettings)),
      codec(codecToUse),
      complaints(complaintsToUse),
      stop(stopSignals),
      repetition(repetitionToKeep) {
    if (source.messages.empty() && source.files.empty()) {
        source.files = {"-"};
        source.lines = !source.whole;
    }
}

std::optional<Parts> Outgoing::next() {
    auto message = repetition.wantsMore(given) ? nextEncoded() : std::nullopt;
    if (!message || !stop.sleepUntil(due)) {
        return std::nullopt;
    }
    // Without drift. A sender that is late by more than an interval does not catch up.
    const auto now = Clock::now();
    due = (now - due > repetition.interval ? now : due) + repetition.interval;
    ++given;
    return message;
}

std::optional<Parts> Outgoing::nextEncoded() {
    do {
        while (auto text = nextText()) {
            try {
                auto message = codec.encode(text->text);
                anyInThisRound = true;
                return message;
            } catch (const CodecError& error) {
                complaints.add(text->place + ": " + error.what());
            }
        }
    } while (!stop.requested() && rewind());
    return std::nullopt;
}

std::optional<Outgoing::Text> Outgoing::nextText() {
    if (nextMessage < source.messages.size()) {
        const std::string& text = source.messages[nextMessage++];
        return Text{text, "message " + std::to_string(nextMessage)};
    }
    while (open || nextFile < source.files.size()) {
        if (!open) {
            open = std::make_unique<InputFile>(source.files[nextFile++], stop);
            lineNumber = 0;
        }
        if (!source.lines) {
            const auto file = std::move(open);
            return Text{file->readAll(), file->name()};
        }
        if (auto line = open->readLine()) {
            return Text{std::move(*line), open->name() + ", line " + std::to_string(++lineNumber)};
        }
        open.reset();
    }
    return std::nullopt;
}

/// Begins again at the first message. False if that is not wanted, or useless, or impossible: standard input can be read
/// once.
bool Outgoing::rewind() {
    const bool isUseful = std::exchange(anyInThisRound, false);
    nextMessage = 0;
    nextFile = 0;
    return repetition.count && isUseful && std::count(source.files.begin(), source.files.end(), "-") == 0;
}

} // namespace rk::tools
