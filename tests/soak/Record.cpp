#include "soak/Record.h"

#include <algorithm>

namespace rk::tests::soak {

namespace {

constexpr double residentLimit = 512;  // KiB: pages, of which a few hundred come and go by chance
constexpr double allocatedLimit = 256; // KiB: four bytes for each socket that is rebuilt within two hours
constexpr double descriptorLimit = 1;
constexpr double threadLimit = 1;

} // namespace

Record::Record(double warmUpSeconds, double runSeconds) : warmUp(warmUpSeconds), end(runSeconds) {}

void Record::add(double time, const ProcessUse& use) {
    if (time < warmUp || time >= end) {
        return;
    }
    std::optional<ProcessUse>& stretch =
        least[static_cast<std::size_t>((time - warmUp) / (end - warmUp) * static_cast<double>(stretches))];
    if (!stretch) {
        stretch = use;
    }
    for (double ProcessUse::*quantity :
         {&ProcessUse::residentKiB, &ProcessUse::allocatedKiB, &ProcessUse::descriptors, &ProcessUse::threads}) {
        (*stretch).*quantity = std::min((*stretch).*quantity, use.*quantity);
    }
}

std::vector<Growth> Record::growth() const {
    const auto filled = std::count_if(least.begin(), least.end(), [](const auto& stretch) { return stretch; });
    if (static_cast<std::size_t>(filled) < enough) {
        return {};
    }
    return {growthOf("resident KiB", &ProcessUse::residentKiB, residentLimit),
            growthOf("allocated KiB", &ProcessUse::allocatedKiB, allocatedLimit),
            growthOf("descriptors", &ProcessUse::descriptors, descriptorLimit),
            growthOf("threads", &ProcessUse::threads, threadLimit)};
}

Growth Record::growthOf(const std::string& name, double ProcessUse::*quantity, double limit) const {
    const double length = (end - warmUp) / static_cast<double>(stretches);
    std::vector<Point> points;
    for (std::size_t i = 0; i < stretches; ++i) {
        if (least[i]) {
            points.push_back({warmUp + (static_cast<double>(i) + 0.5) * length, (*least[i]).*quantity});
        }
    }
    return {name, fit(points), points.back().x - points.front().x + length, limit};
}

} // namespace rk::tests::soak
