#pragma once

#include "MessageSource.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

class Codec;
class Complaints;
struct Settings;
class StopSignals;

/// The blocks to send, one after the other: encoded, repeated as often as --count says and no sooner than --interval
/// allows. A text that cannot be encoded is complained about, and left out.
class Outgoing {
public:
    Outgoing(const Settings& settings, Codec& codec, Complaints& complaints, const StopSignals& stop);

    /// Waits until the next block is due. Nothing when there are no more, or when told to stop.
    std::optional<std::string> next();

private:
    using Clock = std::chrono::steady_clock;

    std::optional<std::string> nextEncoded();
    bool beginAgain();

    Codec& codec;
    Complaints& complaints;
    const StopSignals& stop;
    MessageSource source;
    std::optional<std::uint64_t> count;
    std::chrono::nanoseconds interval;
    Clock::time_point due{};
    std::uint64_t given = 0;
    bool anyInThisRound = false;
};

} // namespace rk::tools
