#include "display/Spread.h"

#include <gtest/gtest.h>

namespace rk::tools {

TEST(Spread, IsExactForLargeCloseNumbers) {
    Spread spread;
    for (const double value : {1e9 + 4, 1e9 + 7, 1e9 + 13, 1e9 + 16}) {
        spread.add(value);
    }

    EXPECT_DOUBLE_EQ(1e9 + 10, spread.mean());
    EXPECT_DOUBLE_EQ(4.743416490252569, spread.deviation());
}

} // namespace rk::tools
