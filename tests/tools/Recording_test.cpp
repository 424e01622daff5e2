#include "recording/Recording.h"

#include <gtest/gtest.h>

#include <limits>

namespace rk::tools::recording {

using namespace std::chrono_literals;

TEST(Recording, HeadHasTheLowestByteFirst) {
    EXPECT_EQ(std::string("\x15\xCD\x5B\x07\0\0\0\0\x2C\x01\0\0", headSize), toBytes({123456789ns, 300}));
}

TEST(Recording, HeadIsReadBackAsWritten) {
    const Head head =
        headFromBytes(toBytes({std::chrono::nanoseconds::max(), std::numeric_limits<std::uint32_t>::max()}));

    EXPECT_EQ(std::chrono::nanoseconds::max(), head.time);
    EXPECT_EQ(std::numeric_limits<std::uint32_t>::max(), head.size);
}

} // namespace rk::tools::recording
