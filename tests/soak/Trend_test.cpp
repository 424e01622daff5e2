#include "soak/Trend.h"

#include <gmock/gmock.h>

#include <stdexcept>

using namespace rk::tests::soak;
using testing::DoubleNear;

TEST(Trend, OfPointsOnALineIsTheLineWithoutError) {
    const Trend trend = fit({{1, 5}, {2, 7}, {3, 9}, {4, 11}});
    EXPECT_THAT(trend.slope, DoubleNear(2, 1e-12));
    EXPECT_THAT(trend.error, DoubleNear(0, 1e-12));
    EXPECT_THAT(trend.first, DoubleNear(5, 1e-12));
    EXPECT_THAT(trend.last, DoubleNear(11, 1e-12));
}

TEST(Trend, HasTheErrorOfTheTextbook) {
    // Rests 0.5, -1, 0.5 about the line y = x + 0.5: their squares sum up to 1.5, on one degree of freedom.
    const Trend trend = fit({{0, 1}, {1, 0.5}, {2, 3}});
    EXPECT_THAT(trend.slope, DoubleNear(1, 1e-12));
    EXPECT_THAT(trend.error, DoubleNear(0.8660254037844386, 1e-12));
}

TEST(Trend, IsNotFittedToLessThanThreePointsOrOnePlace) {
    EXPECT_THROW(fit({{0, 0}, {1, 1}}), std::invalid_argument);
    EXPECT_THROW(fit({{1, 0}, {1, 1}, {1, 2}}), std::invalid_argument);
}
