#include "display/RoundTrips.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace rk::tools {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(RoundTrips, HaveNoDistributionWithoutReplies) {
    EXPECT_THAT(RoundTrips().distribution(), IsEmpty());
}

TEST(RoundTrips, HaveQuantilesThatOccurred) {
    RoundTrips trips;
    for (int time = 100; time > 0; --time) {
        trips.add(std::chrono::milliseconds(time));
    }

    EXPECT_DOUBLE_EQ(50.0, trips.quantile(0.5));
    EXPECT_DOUBLE_EQ(99.0, trips.quantile(0.99));
    EXPECT_DOUBLE_EQ(100.0, trips.quantile(1.0));
    EXPECT_DOUBLE_EQ(1.0, trips.quantile(0.0));
}

TEST(RoundTrips, KeepTheMeanOfEqualTimes) {
    RoundTrips trips;
    trips.add(1000000ns);
    trips.add(1000002ns);

    EXPECT_DOUBLE_EQ(1.000001, trips.quantile(0.5));
}

TEST(RoundTrips, AreCountedInDoublingClasses) {
    RoundTrips trips;
    for (const auto time : {300us, 300us, 1500us}) {
        trips.add(time);
    }

    EXPECT_THAT(trips.distribution(),
                ElementsAre("round trip in ms: least 0.300, median 0.300, 90 % 1.500, 99 % 1.500, greatest 1.500, mean "
                            "0.700, spread 0.566",
                            "  below      0.500 ms       2 ########################################",
                            "  below      1.000 ms       0 ", "  below      2.000 ms       1 ####################"));
}

} // namespace rk::tools
