#include "traffic/Outgoing.h"

#include "display/Complaints.h"
#include "messages/MessageCodec.h"
#include "system/StopSignals.h"

namespace rk::tools {

Outgoing::Outgoing(const SourceSettings& sourceSettings, const Repetition& repetitionToKeep, MessageCodec& codecToUse,
                   Complaints& complaintsToUse, const StopSignals& stopSignals)
    : codec(codecToUse),
      complaints(complaintsToUse),
      stop(stopSignals),
      source(sourceSettings, stopSignals),
      repetition(repetitionToKeep) {}

std::optional<Parts> Outgoing::next() {
    if (!repetition.wantsMore(given)) {
        return std::nullopt;
    }
    auto message = nextEncoded();
    if (!message) {
        return std::nullopt;
    }
    if (!stop.sleepUntil(due)) {
        return std::nullopt;
    }
    // Without drift; but who is late by more than an interval does not catch up.
    const auto now = Clock::now();
    due = (now - due > repetition.interval ? now : due) + repetition.interval;
    ++given;
    return message;
}

std::optional<Parts> Outgoing::nextEncoded() {
    while (!stop.requested()) {
        const auto text = source.next();
        if (!text) {
            if (stop.requested() || !beginAgain()) {
                return std::nullopt;
            }
            continue;
        }
        try {
            auto message = codec.encode(text->text);
            anyInThisRound = true;
            return message;
        } catch (const CodecError& error) {
            complaints.add(text->place + ": " + error.what());
        }
    }
    return std::nullopt;
}

bool Outgoing::beginAgain() {
    const bool useful = anyInThisRound;
    anyInThisRound = false;
    return repetition.count && useful && source.rewind();
}

} // namespace rk::tools
