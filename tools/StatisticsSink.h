#pragma once

#include "Flow.h"
#include "LiveLines.h"
#include "MessageSink.h"

#include <optional>
#include <string>
#include <vector>

namespace rk::tools {

class Output;

/// Shows what comes in: on a terminal in the same place, else in a line for each interval.
class StatisticsSink : public MessageSink {
public:
    StatisticsSink(Output& output, std::chrono::nanoseconds interval, Clock::time_point start);

    void take(const Received& message) override;
    void pause(Clock::time_point now) override;
    Clock::time_point due() const override { return next; }
    void finish(Clock::time_point now) override;

private:
    void showWhenDue(Clock::time_point now);
    void redraw(Clock::time_point now);
    std::string stamp(Clock::time_point now) const;

    Output& output;
    std::chrono::nanoseconds interval;
    Clock::time_point start;
    Clock::time_point next;
    Flow total;
    Flow period;
    std::optional<LiveLines> live;
    std::vector<std::string> recent; ///< what a terminal shows of the last whole interval
};

} // namespace rk::tools
