#include "cli/Validators.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace rk::tools {

namespace {

/// Returns the value as the validator passes it on, or an empty string if it rejects the value.
std::string accepted(const CLI::Validator& validator, std::string text) {
    return validator(text).empty() ? text : "";
}

} // namespace

TEST(Validators, ConvertsDurationsToSeconds) {
    EXPECT_EQ("0.5", accepted(duration(), "500ms"));
    EXPECT_EQ("2e-05", accepted(duration(), "20us"));
    EXPECT_EQ("2", accepted(duration(), "2s"));
    EXPECT_EQ("90", accepted(duration(), "1.5min"));
    EXPECT_EQ("0.25", accepted(duration(), "0.25"));
    EXPECT_EQ("0", accepted(duration(), "0"));
}

TEST(Validators, RefusesDurationsWithTheReason) {
    for (const std::string text : {"", "s", "-1s", "1h", "nan", "inf", "1e10", "2ss", "1S", "20000000min"}) {
        EXPECT_EQ("'" + text + "' is no duration: a number and us, ms, s (also without a unit) or min",
                  duration()(text));
    }
}

TEST(Validators, ConvertsSizesToBytes) {
    const CLI::Validator validator = size(67108864);

    EXPECT_EQ("100", accepted(validator, "100"));
    EXPECT_EQ("65536", accepted(validator, "64KiB"));
    EXPECT_EQ("67108864", accepted(validator, "64MiB"));
    EXPECT_EQ("2000", accepted(validator, "2 kB"));
}

TEST(Validators, RefusesSizesWithTheReason) {
    for (const std::string text :
         {"", "0", "-1", "-18446744073709551615", "1.5", "MiB", "65MiB", "1x", "99999999999TiB"}) {
        EXPECT_EQ("'" + text +
                      "' is no size: a number of bytes up to 67108864, or a number and KiB, MiB, GiB, kB, MB or GB",
                  size(67108864)(text));
    }
}

TEST(Validators, TakesWholeNumbersInTheirRange) {
    const auto most = std::numeric_limits<std::uint64_t>::max();

    EXPECT_EQ("18446744073709551615", accepted(wholeNumber(0, most), "18446744073709551615"));
    EXPECT_EQ("10", accepted(wholeNumber(0, 10), "010"));
    for (const std::string text : {"", "-1", "+1", "11", "1.5", "0x1", "1 ", "18446744073709551616"}) {
        EXPECT_EQ("'" + text + "' is no whole number from 1 to 10", wholeNumber(1, 10)(text));
    }
}

TEST(Validators, TakesNumbersInTheirRange) {
    EXPECT_EQ("0.5", accepted(number(0, 1e9), "0.5"));
    for (const std::string text : {"", "-1", "nan", "inf", "1e10", "1x"}) {
        EXPECT_EQ("'" + text + "' is no number from 0 to 1e+09", number(0, 1e9)(text));
    }
}

TEST(Validators, RejectsTheEmptyString) {
    EXPECT_EQ("must not be empty", notEmpty()(std::string()));
    EXPECT_EQ("", notEmpty()(std::string(" ")));
}

TEST(Validators, RefusesEndpointsWithTheReason) {
    EXPECT_EQ("", endpoint()(std::string("tcp://*:65535")));
    EXPECT_EQ("'udp://a:1' is no endpoint: tcp://HOST:PORT or ipc://PATH", endpoint()(std::string("udp://a:1")));
    EXPECT_EQ("'tcp://a' is no endpoint: tcp://HOST:PORT or ipc://PATH", endpoint()(std::string("tcp://a")));
    EXPECT_EQ("'tcp://:1' is no endpoint: tcp://HOST:PORT or ipc://PATH", endpoint()(std::string("tcp://:1")));
    EXPECT_EQ("inproc://a: inproc endpoints reach no other process", endpoint()(std::string("inproc://a")));
    for (const std::string text : {"tcp://a:0", "tcp://a:65536", "tcp://a:", "tcp://a:80x", "tcp://a:-1"}) {
        EXPECT_EQ(text + ": the port has to be a number from 1 to 65535", endpoint()(text));
    }
}

} // namespace rk::tools
