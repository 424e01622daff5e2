#pragma once

#include "traffic/MessageSource.h"
#include "traffic/Wire.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

class MessageCodec;
class Complaints;
class StopSignals;

/// How many messages are sent or received, and how fast they are sent.
struct Repetition {
    std::optional<std::uint64_t> count; ///< 0 means no end; nothing means each message once
    std::chrono::nanoseconds interval{0};

    bool isEndless() const { return count && *count == 0; }
    bool wantsMore(std::uint64_t sent) const { return !count || isEndless() || sent < *count; }
};

/// The messages to send, one after the other: encoded, repeated as often as --count says and no sooner than --interval
/// allows. A text that cannot be encoded is complained about, and left out.
class Outgoing {
public:
    Outgoing(const SourceSettings& source, const Repetition& repetition, MessageCodec& codec, Complaints& complaints,
             const StopSignals& stop);

    /// Waits until the next message is due. Nothing when there are no more, or when told to stop.
    std::optional<Parts> next();

private:
    using Clock = std::chrono::steady_clock;

    std::optional<Parts> nextEncoded();
    bool beginAgain();

    MessageCodec& codec;
    Complaints& complaints;
    const StopSignals& stop;
    MessageSource source;
    Repetition repetition;
    Clock::time_point due{};
    std::uint64_t given = 0;
    bool anyInThisRound = false;
};

} // namespace rk::tools
