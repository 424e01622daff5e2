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
    Record record(warmUp, end);
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
    Record record(warmUp, end);
    for (double time = 0; time <= end; ++time) {
        record.add(time, {time < warmUp ? 100 * time : 10000, 1000, 10, 10, 0});
    }
    EXPECT_EQ(record.growth().front().trend.first, 10000);
    EXPECT_DOUBLE_EQ(record.growth().front().span, end - warmUp);
}

TEST(Record, OfAShortRunTellsNothing) {
    Record record(0, end);
    record.add(1, {1, 1, 1, 1, 0});
    EXPECT_THAT(record.growth(), testing::IsEmpty());
}

TEST(Record, TakesTheLeastOfEachStretch) {
    Record record(0, 40);
    for (double time = 0; time < 40; time += 0.25) {
        const double peak = time == 7.5 ? 5000 : 0;
        record.add(time, {10000 + peak, 1000, 10, 10, 0});
    }
    EXPECT_EQ(record.growth().front().trend.error, 0);
}

TEST(Record, OfARunThatEndsEarlyTellsWhatItHasSeen) {
    Record record(0, 1000);
    for (double time = 0; time < 500; ++time) {
        record.add(time, {10000 + 10 * time, 1000, 10, 10, 0});
    }
    EXPECT_NEAR(record.growth().front().grown(), 5000, 1);
    EXPECT_FALSE(record.growth().front().isFlat());
}
