#pragma once

#include "MessageSink.h"
#include "Output.h"
#include "ProgressBar.h"

#include <cstdint>
#include <optional>
#include <string>

namespace rk::tools {

/// Writes messages into a recording, and shows how many on standard error.
class RecordingSink : public MessageSink {
public:
    /// `expected`: how many messages there will be, if that is known.
    RecordingSink(const std::string& path, std::optional<std::uint64_t> expected, const StopSignals& stop);

    void take(const Received& message) override;
    void pause(Clock::time_point now) override;
    void finish(Clock::time_point now) override;

private:
    void showProgress(Clock::time_point now);

    Output file;
    ProgressBar bar;
    std::optional<std::uint64_t> expected;
    std::optional<Clock::time_point> first;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

} // namespace rk::tools
