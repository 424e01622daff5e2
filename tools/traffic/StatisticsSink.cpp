#include "display/Flow.h"
#include "display/LiveLines.h"
#include "display/Numbers.h"
#include "display/Terminal.h"
#include "system/Output.h"
#include "traffic/MessageSink.h"

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

class StatisticsSink : public MessageSink {
public:
    StatisticsSink(Output& outputToUse, std::chrono::nanoseconds showInterval, Clock::time_point begin)
        : output(outputToUse),
          interval(std::max<std::chrono::nanoseconds>(showInterval, shortestInterval)),
          start(begin),
          next(begin + interval),
          total(begin),
          period(begin),
          live(output.isTerminal()) {}

    void take(const Received& message) override {
        showWhenDue(message.arrival);
        total.add(message.bytes.size(), message.arrival);
        period.add(message.bytes.size(), message.arrival);
    }

    void pause(Clock::time_point now) override {
        showWhenDue(now);
        output.flushForReader();
    }

    Clock::time_point due() const override { return next; }

    void finish(Clock::time_point now) override {
        if (live) {
            redraw(now);
        } else {
            output.write("in all, " + stamp(now) + ": " + described(total, now) + "\n");
        }
        output.flush();
    }

private:
    void showWhenDue(Clock::time_point now) {
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
        next = next + interval > now ? next + interval : now + interval;
    }

    void redraw(Clock::time_point now) {
        std::string label = "in " + stamp(now) + ": ";
        label.resize(std::max<std::size_t>(label.size(), labelWidth), ' ');
        std::vector<std::string> shown = recent;
        shown.push_back(label + std::to_string(total.messages()) + " messages, " + total.rates(now));
        shown.push_back("            " + total.sizeText() + ", " + total.gapText());
        output.write(lines.draw(shown, widthOf(STDOUT_FILENO)));
    }

    std::string stamp(Clock::time_point now) const {
        return fixed(std::chrono::duration<double>(now - start).count(), 1) + " s";
    }

    Output& output;
    std::chrono::nanoseconds interval;
    Clock::time_point start;
    Clock::time_point next;
    Flow total;
    Flow period;
    bool live;
    LiveLines lines;
    std::vector<std::string> recent; ///< what a terminal shows of the last whole interval
};

} // namespace

std::unique_ptr<MessageSink> makeStatisticsSink(Output& output, std::chrono::nanoseconds interval,
                                                std::chrono::steady_clock::time_point start) {
    return std::make_unique<StatisticsSink>(output, interval, start);
}

} // namespace rk::tools
