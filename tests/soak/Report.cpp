#include "soak/Report.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace rk::tests::soak {

namespace {

struct Count {
    const char* name;
    std::uint64_t value;
};

std::vector<Count> counts(const Figures& figures) {
    return {{"exchanges", figures.exchanges}, {"published", figures.published}, {"deliveries", figures.deliveries},
            {"repeats", figures.repeats},     {"jams", figures.jams},           {"restarts", figures.restarts},
            {"failures", figures.failures},   {"repairs", figures.repairs}};
}

std::ostringstream stream(int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals);
    return text;
}

/// The texts hold names and numbers only, and what 0MQ and the system say.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char character : text) {
        result += character == '"' || character == '\\' ? '\'' : character;
    }
    return result + '"';
}

double processorShare(const Outcome& outcome) {
    return 100 * outcome.use.processorSeconds / outcome.seconds;
}

} // namespace

bool Outcome::isGood() const {
    return breaches.empty() && !growth.empty() &&
           std::all_of(growth.begin(), growth.end(), [](const Growth& one) { return one.isFlat(); });
}

std::string liveLine(double seconds, const Figures& figures, const ProcessUse& use) {
    std::ostringstream text = stream(0);
    text << seconds << " s, " << figures.breaches().size() << " breaches, " << use.residentKiB << " KiB ("
         << use.allocatedKiB << " allocated), " << use.descriptors << " descriptors, " << use.threads << " threads, "
         << std::setprecision(1) << 100 * use.processorSeconds / seconds << " % cpu";
    for (const Count& count : counts(figures)) {
        text << ", " << count.value << ' ' << count.name;
    }
    return text.str();
}

std::string summary(const Outcome& outcome, const Figures& figures) {
    std::ostringstream text = stream(2);
    text << "seed " << outcome.seed << ", " << outcome.seconds << " s, " << processorShare(outcome) << " % of a core\n";
    for (const Count& count : counts(figures)) {
        text << "  " << std::setw(12) << std::left << count.name << ' ' << count.value << '\n';
    }
    for (const Growth& one : outcome.growth) {
        text << "  " << std::setw(12) << one.name << ' ' << one.trend.first << " -> " << one.trend.last << ", slope "
             << one.trend.slope * 3600 << " +- " << one.trend.error * 3600 << " per hour, grown by " << one.grown()
             << " +- " << one.error() << ", limit " << one.limit << (one.isFlat() ? ": flat" : ": GROWS") << '\n';
    }
    if (outcome.growth.empty()) {
        text << "  too short to tell a trend\n";
    }
    for (const std::string& breach : outcome.breaches) {
        text << "  BROKEN " << breach << '\n';
    }
    text << (outcome.isGood() ? "good" : "FAILED") << '\n';
    return text.str();
}

std::string json(const Outcome& outcome, const Figures& figures) {
    std::ostringstream text = stream(4);
    text << "{\"good\": " << (outcome.isGood() ? "true" : "false") << ", \"seed\": " << outcome.seed
         << ", \"seconds\": " << outcome.seconds << ", \"cpu_percent\": " << processorShare(outcome);
    for (const Count& count : counts(figures)) {
        text << ", \"" << count.name << "\": " << count.value;
    }
    text << ", \"growth\": [";
    const char* separator = "";
    for (const Growth& one : outcome.growth) {
        text << separator << "{\"name\": " << quoted(one.name) << ", \"first\": " << one.trend.first
             << ", \"last\": " << one.trend.last << ", \"slope_per_hour\": " << one.trend.slope * 3600
             << ", \"error_per_hour\": " << one.trend.error * 3600 << ", \"limit\": " << one.limit
             << ", \"flat\": " << (one.isFlat() ? "true" : "false") << "}";
        separator = ", ";
    }
    text << "], \"breaches\": [";
    separator = "";
    for (const std::string& breach : outcome.breaches) {
        text << separator << quoted(breach);
        separator = ", ";
    }
    text << "]}\n";
    return text.str();
}

} // namespace rk::tests::soak
