#include "recording/Recording.h"

#include <gtest/gtest.h>

#include <limits>

namespace rk::tools::recording {

using namespace std::chrono_literals;

TEST(Recording, HeadIsLittleEndian) {
    EXPECT_EQ(std::string("\x15\xCD\x5B\x07\0\0\0\0\x2C\x01\0\0", headSize), toBytes({123456789ns, 300, false}));
}

TEST(Recording, HeadIsReadBackAsWritten) {
    const std::uint32_t longest = std::numeric_limits<std::int32_t>::max();
    for (const bool more : {false, true}) {
        const Head head = headFromBytes(toBytes({std::chrono::nanoseconds::max(), longest, more}));

        EXPECT_EQ(std::chrono::nanoseconds::max(), head.time);
        EXPECT_EQ(longest, head.size);
        EXPECT_EQ(more, head.more);
    }
}

} // namespace rk::tools::recording
