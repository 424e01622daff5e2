#include "display/Flow.h"

#include <gtest/gtest.h>

namespace rk::tools {

using namespace std::chrono_literals;

namespace {

const Flow::Clock::time_point start{1000s};

} // namespace

TEST(Flow, HasNoSizesOrGapsWithoutMessages) {
    const Flow flow(start);

    EXPECT_EQ("0.0 messages/s, 0.000 Mbit/s", flow.rates(start + 1s));
    EXPECT_EQ("size -", flow.sizeText());
    EXPECT_EQ("gap -", flow.gapText());
}

TEST(Flow, ReportsRatesSizesAndGaps) {
    Flow flow(start);
    flow.add(131072, start + 1s);
    flow.add(131072 * 2, start + 1s + 10ms);
    flow.add(131072 * 3, start + 1s + 40ms);

    EXPECT_EQ("1.5 messages/s, 3.000 Mbit/s", flow.rates(start + 2s));
    EXPECT_EQ("size 131072/262144.0/393216 bytes", flow.sizeText());
    EXPECT_EQ("gap 10.000/20.000/30.000 ms, spread 10.000 ms", flow.gapText());
}

TEST(Flow, CountsTheGapSinceThePreviousPeriod) {
    Flow flow(start, start - 5ms);
    flow.add(1, start + 5ms);

    EXPECT_EQ("gap 10.000/10.000/10.000 ms, spread 0.000 ms", flow.gapText());
    EXPECT_EQ(start + 5ms, flow.lastArrival());
}

} // namespace rk::tools
