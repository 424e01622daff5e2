#include "soak/Record.h"

namespace rk::tests::soak {

namespace {

constexpr std::size_t stretches = 40;
constexpr double residentLimit = 512;  // KiB: pages, of which a few hundred come and go by chance
constexpr double allocatedLimit = 256; // KiB: four bytes for each socket that is rebuilt within two hours
constexpr double descriptorLimit = 1;
constexpr double threadLimit = 1;

Growth growthOf(const std::string& name, const std::vector<Point>& points, double limit) {
    return {name, fit(minima(points, stretches)), points.back().x - points.front().x, limit};
}

} // namespace

void Record::add(double time, const ProcessUse& use) {
    if (time < warmUp) {
        return;
    }
    resident.push_back({time, use.residentKiB});
    allocated.push_back({time, use.allocatedKiB});
    descriptors.push_back({time, use.descriptors});
    threads.push_back({time, use.threads});
}

std::vector<Growth> Record::growth() const {
    if (resident.size() < stretches) {
        return {};
    }
    return {growthOf("resident KiB", resident, residentLimit), growthOf("allocated KiB", allocated, allocatedLimit),
            growthOf("descriptors", descriptors, descriptorLimit), growthOf("threads", threads, threadLimit)};
}

} // namespace rk::tests::soak
