#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace rk::tools {

class Complaints;

/// A line on standard error, if that is a terminal, which shows how far the work has come.
class ProgressBar {
public:
    using Clock = std::chrono::steady_clock;

    /// Makes room for complaints.
    explicit ProgressBar(Complaints& complaints);

    /// Ends the line.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Whether it is time to show something again.
    bool due(Clock::time_point now) const;

    /// `done` is the share of the work, from 0 to 1, if it is known.
    void show(std::optional<double> done, const std::string& text, Clock::time_point now);

    /// The line itself, `width` columns at most.
    static std::string line(std::optional<double> done, const std::string& text, std::size_t width);

private:
    Complaints& complaints;
    bool visible;
    bool shown = false;
    Clock::time_point next;
};

} // namespace rk::tools
