#include "display/ProgressBar.h"

#include "display/Complaints.h"
#include "display/Numbers.h"
#include "display/Terminal.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace rk::tools {

namespace {

constexpr std::chrono::milliseconds pause{100};
constexpr std::size_t barWidth = 30;

} // namespace

ProgressBar::ProgressBar(Complaints& complaintsToMakeRoomFor)
    : complaints(complaintsToMakeRoomFor), visible(canRedraw(STDERR_FILENO)) {
    complaints.beforeEachLine([this] { std::fputs(lines.clear().c_str(), stderr); });
}

ProgressBar::~ProgressBar() {
    complaints.beforeEachLine({});
}

bool ProgressBar::due(Clock::time_point now) const {
    return visible && now >= next;
}

void ProgressBar::show(std::optional<double> done, const std::string& text, Clock::time_point now) {
    if (visible) {
        std::fputs(lines.draw({line(done, text)}, widthOf(STDERR_FILENO)).c_str(), stderr);
        next = now + pause;
    }
}

std::string ProgressBar::line(std::optional<double> done, const std::string& text) {
    if (!done) {
        return text;
    }
    const double share = std::clamp(*done, 0.0, 1.0);
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
    const std::string percent = fixed(share * 100.0, 0);
    return "[" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "] " +
           std::string(3 - percent.size(), ' ') + percent + " %  " + text;
}

} // namespace rk::tools
