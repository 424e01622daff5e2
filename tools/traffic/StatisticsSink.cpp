#include "display/Complaints.h"
#include "display/Flow.h"
#include "display/LiveLines.h"
#include "display/Numbers.h"
#include "display/Terminal.h"
#include "system/Output.h"
#include "traffic/MessageSink.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <unistd.h>

namespace rk::tools {

namespace {

constexpr std::size_t labelWidth = 12;
constexpr std::size_t longestHistory = 20;
constexpr std::chrono::milliseconds shortestInterval{10};

std::string described(const Flow& flow, Flow::Clock::time_point now) {
    return std::to_string(flow.messages()) + " messages, " + flow.rates(now) + ", " + flow.sizeText() + ", " +
           flow.gapText();
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

/// The numbers as a line of bars, relative to the greatest of them.
std::string sparkline(const std::deque<double>& numbers) {
    constexpr std::array<const char*, 8> bars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double greatest = numbers.empty() ? 0.0 : *std::max_element(numbers.begin(), numbers.end());
    std::string line;
    for (const double number : numbers) {
        line += greatest > 0.0 ? bars[static_cast<std::size_t>(std::lround(number / greatest * (bars.size() - 1)))]
                               : bars[0];
    }
    return line;
}

/// The messages of an endpoint.
struct Source {
    Source(std::string endpointToShow, Flow::Clock::time_point begin)
        : endpoint(std::move(endpointToShow)), total(begin), period(begin) {}

    std::string endpoint;
    Flow total;
    Flow period;
    std::deque<double> history;      ///< messages in the last intervals
    std::vector<std::string> recent; ///< lines on the last whole interval
};

class StatisticsSink : public MessageSink {
public:
    StatisticsSink(Output& outputToUse, Complaints& complaintsToUse, std::chrono::nanoseconds showInterval,
                   const std::vector<std::string>& endpoints, Clock::time_point begin)
        : output(outputToUse),
          complaints(complaintsToUse),
          interval(std::max<std::chrono::nanoseconds>(showInterval, shortestInterval)),
          start(begin),
          next(begin + interval),
          live(canRedraw(STDOUT_FILENO)) {
        for (const std::string& endpoint : endpoints) {
            sources.emplace_back(endpoint, begin);
        }
        complaints.beforeEachLine([this] {
            output.write(lines.clear());
            output.flush();
        });
    }

    ~StatisticsSink() override { complaints.beforeEachLine({}); }
    StatisticsSink(const StatisticsSink&) = delete;
    StatisticsSink& operator=(const StatisticsSink&) = delete;

    void take(const Received& message) override {
        showWhenDue(message.arrival);
        const auto source = std::find_if(sources.begin(), sources.end(), [&message](const Source& candidate) {
            return candidate.endpoint == message.endpoint;
        });
        source->total.add(message.size, message.arrival);
        source->period.add(message.size, message.arrival);
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
            for (const Source& source : sources) {
                output.write("in all, " + stamp(now) + nameOf(source) + ": " + described(source.total, now) + "\n");
            }
        }
        output.flush();
    }

private:
    void showWhenDue(Clock::time_point now) {
        if (now < next) {
            return;
        }
        for (Source& source : sources) {
            source.history.push_back(static_cast<double>(source.period.messages()));
            if (source.history.size() > longestHistory) {
                source.history.pop_front();
            }
            if (live) {
                source.recent = {padded("now:", labelWidth) + source.period.rates(now) + "  " +
                                     sparkline(source.history),
                                 padded("", labelWidth) + source.period.sizeText() + ", " + source.period.gapText()};
            } else {
                output.write(stamp(now) + nameOf(source) + ": " + described(source.period, now) + "\n");
            }
        }
        if (live) {
            redraw(now);
        }
        output.flush();
        for (Source& source : sources) {
            source.period = Flow(now, source.period.lastArrival());
        }
        next = next + interval > now ? next + interval : now + interval;
    }

    void redraw(Clock::time_point now) {
        const auto shown = sources.size() == 1 ? inFull(sources.front(), now) : inTable(now);
        output.write(lines.draw(shown, widthOf(STDOUT_FILENO)));
    }

    std::vector<std::string> inFull(const Source& source, Clock::time_point now) const {
        std::vector<std::string> shown = source.recent;
        shown.push_back(padded("in " + stamp(now) + ": ", labelWidth) + std::to_string(source.total.messages()) +
                        " messages, " + source.total.rates(now));
        shown.push_back(padded("", labelWidth) + source.total.sizeText() + ", " + source.total.gapText());
        return shown;
    }

    std::vector<std::string> inTable(Clock::time_point now) const {
        std::size_t width = 0;
        for (const Source& source : sources) {
            width = std::max(width, source.endpoint.size());
        }
        std::vector<std::string> shown = {padded("in " + stamp(now), width) + "  " + padded("messages", labelWidth) +
                                          padded("messages/s", labelWidth) + padded("Mbit/s", labelWidth) + "bytes"};
        for (const Source& source : sources) {
            shown.push_back(padded(source.endpoint, width) + "  " +
                            padded(std::to_string(source.total.messages()), labelWidth) +
                            padded(fixed(source.total.messagesPerSecond(now), 1), labelWidth) +
                            padded(fixed(source.total.megabitsPerSecond(now), 3), labelWidth) +
                            padded(source.total.sizes(), labelWidth) + "  " + sparkline(source.history));
        }
        return shown;
    }

    std::string nameOf(const Source& source) const { return sources.size() == 1 ? "" : " " + source.endpoint; }

    std::string stamp(Clock::time_point now) const {
        return fixed(std::chrono::duration<double>(now - start).count(), 1) + " s";
    }

    Output& output;
    Complaints& complaints;
    std::chrono::nanoseconds interval;
    Clock::time_point start;
    Clock::time_point next;
    std::vector<Source> sources;
    bool live;
    LiveLines lines;
};

} // namespace

std::unique_ptr<MessageSink> makeStatisticsSink(Output& output, Complaints& complaints,
                                                std::chrono::nanoseconds interval,
                                                const std::vector<std::string>& endpoints,
                                                std::chrono::steady_clock::time_point start) {
    return std::make_unique<StatisticsSink>(output, complaints, interval, endpoints, start);
}

} // namespace rk::tools
