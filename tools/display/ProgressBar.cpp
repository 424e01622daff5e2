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
    complaints.beforeEachLine([this] {
        if (shown) {
            std::fputs("\r\033[K", stderr);
            shown = false;
        }
    });
}

ProgressBar::~ProgressBar() {
    complaints.beforeEachLine({});
    if (shown) {
        std::fputc('\n', stderr);
    }
}

bool ProgressBar::due(Clock::time_point now) const {
    return visible && now >= next;
}

void ProgressBar::show(std::optional<double> done, const std::string& text, Clock::time_point now) {
    if (!visible) {
        return;
    }
    std::fprintf(stderr, "\r\033[K%s", line(done, text, widthOf(STDERR_FILENO) - 1).c_str());
    std::fflush(stderr);
    shown = true;
    next = now + pause;
}

std::string ProgressBar::line(std::optional<double> done, const std::string& text, std::size_t width) {
    std::string bar;
    if (done) {
        const double share = std::clamp(*done, 0.0, 1.0);
        const auto filled = static_cast<std::size_t>(share * static_cast<double>(barWidth));
        const std::string percent = fixed(share * 100.0, 0);
        bar = "[" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "] " +
              std::string(3 - std::min<std::size_t>(percent.size(), 3), ' ') + percent + " %  ";
    }
    return (bar + text).substr(0, width);
}

} // namespace rk::tools
