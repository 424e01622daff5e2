#include "StatisticsSink.h"

#include "Numbers.h"
#include "Output.h"
#include "Terminal.h"

#include <algorithm>
#include <unistd.h>

namespace rk::tools {

namespace {

constexpr std::size_t labelWidth = 12;
constexpr std::chrono::milliseconds shortestInterval{10};

std::string described(const Flow& flow, Flow::Clock::time_point now) {
    return std::to_string(flow.messages()) + " messages, " + flow.rates(now) + ", " + flow.sizeText() + ", " +
           flow.gapText();
}

} // namespace

StatisticsSink::StatisticsSink(Output& outputToUse, std::chrono::nanoseconds showInterval, Clock::time_point begin)
    : output(outputToUse),
      interval(std::max<std::chrono::nanoseconds>(showInterval, shortestInterval)),
      start(begin),
      next(begin + interval),
      total(begin),
      period(begin) {
    if (output.isTerminal()) {
        live.emplace();
    }
}

void StatisticsSink::take(const Received& message) {
    showWhenDue(message.arrival);
    total.add(message.bytes.size(), message.arrival);
    period.add(message.bytes.size(), message.arrival);
}

void StatisticsSink::pause(Clock::time_point now) {
    showWhenDue(now);
    if (output.readerGone()) {
        throw ReaderGone();
    }
}

void StatisticsSink::showWhenDue(Clock::time_point now) {
    if (now < next) {
        return;
    }
    if (live) {
        recent = {"now:        " + period.rates(now), "            " + period.sizeText() + ", " + period.gapText()};
        redraw(now);
    } else {
        output.write(stamp(now) + ": " + described(period, now) + "\n");
    }
    output.flush();
    period = Flow(now, period.lastArrival());
    next += interval;
    if (next <= now) {
        next = now + interval;
    }
}

std::string StatisticsSink::stamp(Clock::time_point now) const {
    return fixed(std::chrono::duration<double>(now - start).count(), 1) + " s";
}

void StatisticsSink::redraw(Clock::time_point now) {
    std::string label = "in " + stamp(now) + ": ";
    label.resize(std::max<std::size_t>(label.size(), labelWidth), ' ');
    std::vector<std::string> lines = recent;
    lines.push_back(label + std::to_string(total.messages()) + " messages, " + total.rates(now));
    lines.push_back("            " + total.sizeText() + ", " + total.gapText());
    output.write(live->draw(lines, widthOf(STDOUT_FILENO)));
}

void StatisticsSink::finish(Clock::time_point now) {
    if (live) {
        redraw(now);
    } else {
        output.write("in all, " + stamp(now) + ": " + described(total, now) + "\n");
    }
    output.flush();
}

} // namespace rk::tools
