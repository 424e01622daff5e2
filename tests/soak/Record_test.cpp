#include "soak/Record.h"

#include <gmock/gmock.h>

#include <cmath>

using namespace rk::tests::soak;

namespace {

constexpr double warmUp = 100;
constexpr double end = 1000;

/// A run whose memory, descriptors and threads grow by so much from the end of the warm-up to its own end, on top of a
/// swing that comes and goes.
std::vector<Growth> runThatGrowsBy(const ProcessUse& growth) {
    Record record(warmUp);
    for (double time = 0; time <= end; ++time) {
        const double done = (time - warmUp) / (end - warmUp);
        const double swing = std::sin(time);
        record.add(time,
                   {20000 + done * growth.residentKiB + 500 * swing, 2000 + done * growth.allocatedKiB + 100 * swing,
                    100 + done * growth.descriptors + 5 * swing, 20 + done * growth.threads + 3 * swing, 0});
    }
    return record.growth();
}

std::vector<std::string> growing(const std::vector<Growth>& all) {
    std::vector<std::string> names;
    for (const Growth& one : all) {
        if (!one.isFlat()) {
            names.push_back(one.name);
        }
    }
    return names;
}

} // namespace

TEST(Record, FindsASwingThatComesAndGoesFlat) {
    const auto growth = runThatGrowsBy({0, 0, 0, 0, 0});
    EXPECT_EQ(growth.size(), 4U);
    EXPECT_THAT(growing(growth), testing::IsEmpty());
}

TEST(Record, TellsTheQuantityThatGrows) {
    EXPECT_THAT(growing(runThatGrowsBy({1500, 0, 0, 0, 0})), testing::ElementsAre("resident KiB"));
    EXPECT_THAT(growing(runThatGrowsBy({0, 400, 0, 0, 0})), testing::ElementsAre("allocated KiB"));
    EXPECT_THAT(growing(runThatGrowsBy({0, 0, 3, 0, 0})), testing::ElementsAre("descriptors"));
    EXPECT_THAT(growing(runThatGrowsBy({0, 0, 0, 3, 0})), testing::ElementsAre("threads"));
}

TEST(Record, LeavesTheWarmUpOut) {
    Record record(warmUp);
    for (double time = 0; time <= end; ++time) {
        record.add(time, {time < warmUp ? 100 * time : 10000, 1000, 10, 10, 0});
    }
    EXPECT_EQ(record.growth().front().trend.first, 10000);
    EXPECT_EQ(record.growth().front().span, end - warmUp);
}

TEST(Record, OfAShortRunTellsNothing) {
    Record record(0);
    record.add(1, {1, 1, 1, 1, 0});
    EXPECT_THAT(record.growth(), testing::IsEmpty());
}
