#include "support/Child.h"
#include "support/Test.h"

namespace rk::tests {

namespace {

/// Returns the output of a child process without the library's debug lines. `command` runs the child, if given.
std::vector<std::string> linesOf(const std::string& scenario, std::vector<std::string> command = {}) {
    command.insert(command.end(), {RK_CONTRACT_CHILD, scenario});
    const ChildResult result = runChild(command);
    EXPECT_EQ(0, result.status) << testing::PrintToString(result.errorLines);
    std::vector<std::string> lines;
    for (const std::string& line : result.errorLines) {
        if (line.find("[debug] [SocketContext]: ") == std::string::npos &&
            line.find("[debug] Connect") == std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

/// Disables the leak check of AddressSanitizer, which may hang at the exit of a forked process.
std::vector<std::string> linesWithoutLeakCheckOf(const std::string& scenario) {
    return linesOf(scenario, {"/usr/bin/env", "LSAN_OPTIONS=detect_leaks=0"});
}

const std::vector<std::string> values{"rep 3", "ipc",          "tcp://*:1 SocketEndpoint tcp://node:1: here",
                                      "equal", "[name]: text", "the end"};

} // namespace

TEST(ContractAfterExit, KeepsValuesAndLogLines) {
    EXPECT_EQ(values, linesOf("late-values"));
    EXPECT_THAT(linesOf("late-log-lines"), ElementsAre(EndsWith("[debug] a debug line"),
                                                       EndsWith("[warning] a warning"), EndsWith("[error] an error")));
}

TEST(ContractAfterExit, KeepsSocketsClosed) {
    const std::string refused = "Socket: Failed creating socket [Socket late] of type 1: Context was terminated on "
                                "[Socket late]";
    EXPECT_THAT(linesOf("late-socket"),
                ElementsAre("null", "getSocket: done", "create: " + refused, "createAndConnect: " + refused,
                            "connect: Socket: Cannot connect a NULL socket", "resetConnections: done",
                            "send: Socket: Cannot send on a NULL socket",
                            "sendProtoBuf: Socket: Cannot send on a NULL socket",
                            "receive: Socket: Cannot receive on a NULL socket",
                            "receiveProtoBuf: Socket: Cannot receive on a NULL socket",
                            "poll: Socket: Cannot poll a NULL socket", "flushIncomingMessages: done",
                            "setInternalFifoSize: done", "activateStatistics: done", "addBlockToStatistics: done",
                            "setTargetBitRate: done", "handleBitRateCapping: done", "close: done", "[Socket late]"));
}

TEST(ContractAfterExit, StartsNoListener) {
    EXPECT_THAT(
        linesOf("late-listener"),
        ElementsAre("added", "removed",
                    "[Socket Listener rep] Failed creating socket: Socket: Failed creating socket [Socket late] "
                    "of type 3: Context was terminated on [Socket late]",
                    "stopped", "[Socket Listener rep] text"));
}

TEST(ContractAfterFork, KeepsTheParentsSockets) {
    const auto went = [](const char* status) {
        return ElementsAre("answered", std::string("the child ended with ") + status, "answered");
    };
    EXPECT_THAT(linesOf("fork-with-sockets"), went("0"));
    EXPECT_THAT(linesWithoutLeakCheckOf("fork-and-exit"), went("7"));
    EXPECT_THAT(linesWithoutLeakCheckOf("fork-and-return"), went("0"));
    EXPECT_THAT(linesOf("fork-with-a-listener"), went("0"));
}

TEST(ContractAfterFork, CreatesAFirstSocketInBoth) {
    EXPECT_THAT(linesOf("fork-before-the-first-socket"), ElementsAre("answered", "the child ended with 0", "answered"));
}

TEST(ContractAfterFork, KeepsValuesAndLogLines) {
    std::vector<testing::Matcher<std::string>> expected(values.begin(), values.end());
    for (const char* end : {"[debug] a debug line", "[warning] a warning", "[error] an error"}) {
        expected.emplace_back(EndsWith(end));
    }
    expected.emplace_back("the child ended with 0");

    EXPECT_THAT(linesOf("fork-and-use-values"), ElementsAreArray(expected));
}

TEST(ContractAfterFork, LeavesExecNoDescriptor) {
    const std::vector<std::string> lines = linesOf("fork-and-exec");

    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ(lines[0], lines[2]) << "descriptors without and with sockets in the parent";
    EXPECT_EQ("the child ended with 0", lines[3]);
}

} // namespace rk::tests
