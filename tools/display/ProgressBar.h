#pragma once

#include "display/LiveLines.h"

#include <chrono>
#include <optional>
#include <string>

namespace rk::tools {

class Complaints;

/// Shows the progress of the work in a line on standard error, if that is a terminal.
class ProgressBar {
public:
    using Clock = std::chrono::steady_clock;

    /// Clears the line before each complaint.
    explicit ProgressBar(Complaints& complaints);

    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Returns whether the line is old.
    bool due(Clock::time_point now) const;

    /// Draws the line. `done` is the finished share of the work, from 0 to 1, if it is known.
    void show(std::optional<double> done, const std::string& text, Clock::time_point now);

    /// Returns the line.
    static std::string line(std::optional<double> done, const std::string& text);

private:
    Complaints& complaints;
    bool visible;
    LiveLines lines;
    Clock::time_point next;
};

} // namespace rk::tools
