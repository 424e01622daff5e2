#include "support/Child.h"

#include <google/protobuf/stubs/common.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

// Compares the instructions of a call with those of the same work written by hand on ZeroMQ's C interface. Callgrind
// counts them, without those of ZeroMQ. The counts are exact on a busy machine too.

namespace rk::tests {

namespace {

/// Returns the number after `label` in a child's standard error.
double numberBehind(const std::string& label, const ChildResult& result) {
    for (const std::string& line : result.errorLines) {
        const std::string::size_type at = line.find(label);
        if (at != std::string::npos) {
            return std::strtod(line.c_str() + at + label.size(), nullptr);
        }
    }
    throw std::runtime_error("a child did not write " + label);
}

struct Work {
    std::string name;
    int payload = 64;
};

double instructionsOf(const Work& work, int times) {
    return numberBehind("Collected : ",
                        runChild({RK_VALGRIND, "--tool=callgrind", "--callgrind-out-file=/dev/null", RK_COST_CHILD,
                                  work.name, std::to_string(work.payload), std::to_string(times)}));
}

/// Returns the instructions per call, from the difference of a long run and a short one.
double instructions(const Work& work) {
    constexpr int shortRun = 20 * 49;
    constexpr int longRun = 120 * 49;
    return (instructionsOf(work, longRun) - instructionsOf(work, shortRun)) / (longRun - shortRun);
}

double allocations(const std::string& work) {
    constexpr int times = 1000;
    return numberBehind("allocations: ", runChild({RK_COST_CHILD, work, "64", std::to_string(times)})) / times;
}

// A whole run varies by a few instructions.
constexpr double slack = 0.1;

// Since protobuf 22, a caller that knows the message type needs fewer instructions to check `IsInitialized`.
constexpr double knownType = GOOGLE_PROTOBUF_VERSION < 4022000 ? 0 : 12;

/// Returns the instructions per call, and records them in the test's report as "send" or "sendProtoBuf_by_hand".
double counted(const Work& work) {
    std::string key = work.name;
    std::replace(key.begin(), key.end(), ' ', '_');
    const double count = instructions(work);
    ::testing::Test::RecordProperty(key, std::to_string(count));
    return count;
}

double overhead(const std::string& work, const std::string& baseline, int payload = 64) {
    return counted({work, payload}) - counted({baseline, payload});
}

} // namespace

TEST(Cost, SendAddsAtMost30Instructions) {
    EXPECT_LE(overhead("send", "send by hand"), 30 + slack);
}

TEST(Cost, ReceiveAddsAtMost25Instructions) {
    EXPECT_LE(overhead("receive", "receive by hand"), 25 + slack);
}

TEST(Cost, AddsNothingWithACapOfZero) {
    EXPECT_NEAR(0, overhead("send with a cap of 0", "send"), slack);
}

TEST(Cost, StatisticsAddAtMost25PerSend) {
    EXPECT_LE(overhead("send with statistics", "send without statistics"), 25 + slack);
}

TEST(Cost, StatisticsAddAtMost25PerReceive) {
    EXPECT_LE(overhead("receive with statistics", "receive without statistics"), 25 + slack);
}

TEST(Cost, AllocatesOnlyForSentMessages) {
    for (const char* const work : {"send", "receive", "send with statistics", "receive with statistics"}) {
        EXPECT_EQ(0, allocations(work)) << work;
    }
    EXPECT_EQ(1, allocations("sendProtoBuf"));
    EXPECT_EQ(0, allocations("receiveProtoBuf"));
}

/// The parameter is the size of the bytes field in the message.
class CostOfProtoBuf : public ::testing::TestWithParam<int> {};

TEST_P(CostOfProtoBuf, SendAddsNoInstructions) {
    EXPECT_LE(overhead("sendProtoBuf", "sendProtoBuf by hand", GetParam()), slack);
    EXPECT_LE(overhead("sendProtoBuf of a blob", "sendProtoBuf of a blob by hand", GetParam()), knownType + slack);
}

TEST_P(CostOfProtoBuf, ReceiveAddsAtMost45) {
    EXPECT_LE(overhead("receiveProtoBuf", "receiveProtoBuf by hand", GetParam()), 45 + slack);
}

INSTANTIATE_TEST_SUITE_P(Payload, CostOfProtoBuf, ::testing::Values(0, 64, 4096), ::testing::PrintToStringParamName());

} // namespace rk::tests
