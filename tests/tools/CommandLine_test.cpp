#include "CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace rk::tools {

namespace {

using testing::ElementsAre;

std::variant<Settings, Information, Misuse> parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "rk-socket");
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

Settings settingsOf(const std::vector<const char*>& arguments) {
    return std::get<Settings>(parse(arguments));
}

std::string misuseOf(const std::vector<const char*>& arguments) {
    return std::get<Misuse>(parse(arguments)).text;
}

} // namespace

TEST(CommandLine, HasDefaultsThatFitTheSubcommand) {
    const Settings sub = settingsOf({"sub", "ipc://a"});
    EXPECT_EQ(rk::socket::Protocol::Sub, sub.protocol);
    EXPECT_EQ(std::nullopt, sub.timeout);
    EXPECT_EQ(std::chrono::seconds(1), sub.interval);
    EXPECT_EQ(rk::socket::ClosePolicy::DropPending, sub.closePolicy);

    const Settings pub = settingsOf({"pub", "ipc://a"});
    EXPECT_EQ(rk::socket::Protocol::Pub, pub.protocol);
    EXPECT_EQ(std::chrono::seconds(0), pub.interval);
    EXPECT_EQ(std::chrono::milliseconds(500), pub.delay);
    EXPECT_EQ(rk::socket::ClosePolicy::LingerTwoSeconds, pub.closePolicy);

    const Settings req = settingsOf({"req", "ipc://a"});
    EXPECT_EQ(rk::socket::Protocol::Req, req.protocol);
    EXPECT_EQ(std::chrono::seconds(5), req.timeout);
    EXPECT_EQ(rk::socket::ClosePolicy::DropPending, req.closePolicy);

    const Settings rep = settingsOf({"rep", "ipc://a", "--echo"});
    EXPECT_EQ(rk::socket::Protocol::Rep, rep.protocol);
    EXPECT_EQ(rk::socket::ClosePolicy::LingerTwoSeconds, rep.closePolicy);
}

TEST(CommandLine, TakesWhatIsSaidInsteadOfTheDefaults) {
    const Settings settings = settingsOf({"req",
                                          "tcp://h:1",
                                          "-n",
                                          "3",
                                          "-t",
                                          "2s",
                                          "--interval",
                                          "10ms",
                                          "--rate",
                                          "8",
                                          "--fifo",
                                          "0",
                                          "--close-policy",
                                          "wait",
                                          "--max-size",
                                          "10",
                                          "--format",
                                          "hex",
                                          "--hex",
                                          "-v"});

    EXPECT_EQ(3U, settings.count);
    EXPECT_EQ(std::chrono::seconds(2), settings.timeout);
    EXPECT_EQ(std::chrono::milliseconds(10), settings.interval);
    EXPECT_EQ(8U, settings.rate);
    EXPECT_EQ(0, settings.fifo);
    EXPECT_EQ(rk::socket::ClosePolicy::WaitForDelivery, settings.closePolicy);
    EXPECT_EQ(10U, settings.maxSize);
    EXPECT_EQ(Format::Hex, settings.format);
    EXPECT_TRUE(settings.hex);
    EXPECT_TRUE(settings.verbose);
}

TEST(CommandLine, TakesMessagesAsTheyAre) {
    EXPECT_THAT(settingsOf({"pub", "ipc://a", "[1,2]", "{}", "", "[]", "a b", "--", "--hex", "--"}).messages,
                ElementsAre("[1,2]", "{}", "", "[]", "a b", "--hex", "--"));
    EXPECT_EQ("[1,2]", settingsOf({"rep", "ipc://a", "--reply", "[1,2]"}).reply);
    EXPECT_EQ("", settingsOf({"rep", "ipc://a", "--reply", ""}).reply);
    EXPECT_EQ("[ 1,2 ]", settingsOf({"rep", "ipc://a", "--command", "[ 1,2 ]"}).command);
    EXPECT_THAT(settingsOf({"pub", "ipc://a", "--file", "[1,2]", "--file", "[3]"}).files, ElementsAre("[1,2]", "[3]"));
}

TEST(CommandLine, TakesSeveralSchemasBehindOneOption) {
    const Settings settings =
        settingsOf({"pub", "--proto", "a.proto", "b.proto", "ipc://a", "x", "c.proto", "--type", "T", "d.proto"});

    EXPECT_THAT(settings.protoFiles, ElementsAre("a.proto", "b.proto"));
    EXPECT_THAT(settings.messages, ElementsAre("x", "c.proto", "d.proto"));
    EXPECT_THAT(settingsOf({"sub", "ipc://a", "--type", "T", "--proto", "a", "--proto", "b.proto"}).protoFiles,
                ElementsAre("a", "b.proto"));
}

TEST(CommandLine, RepliesAreOfTheRequestsTypeUnlessTheyHaveTheirOwn) {
    EXPECT_EQ("T", settingsOf({"req", "ipc://a", "--proto", "f", "--type", "T"}).replyType);
    EXPECT_EQ("U", settingsOf({"req", "ipc://a", "--proto", "f", "--type", "T", "--reply-type", "U"}).replyType);
}

TEST(CommandLine, RefusesEndpointsThatCannotBeMeant) {
    const std::string hint = " (see rk-socket sub --help)";

    EXPECT_EQ("ENDPOINT: Failed deserializing udp://a:1: cannot extract transport" + hint,
              misuseOf({"sub", "udp://a:1"}));
    EXPECT_EQ("ENDPOINT: Failed deserializing tcp://a: cannot extract port" + hint, misuseOf({"sub", "tcp://a"}));
    EXPECT_EQ("ENDPOINT: inproc://a: inproc endpoints reach nobody outside this process" + hint,
              misuseOf({"sub", "inproc://a"}));
    for (const std::string endpoint : {"tcp://a:0", "tcp://a:65536", "tcp://a:", "tcp://a:80x", "tcp://a:-1"}) {
        EXPECT_EQ("ENDPOINT: " + endpoint + ": the port has to be a number from 1 to 65535" + hint,
                  misuseOf({"sub", endpoint.c_str()}));
    }
}

TEST(CommandLine, NamesTheOptionThatThereIsNot) {
    EXPECT_EQ("The following argument was not expected: --cuont (see rk-socket sub --help)",
              misuseOf({"sub", "--cuont", "3", "ipc://a"}));
}

TEST(CommandLine, NamesTheCommandThatThereIsNot) {
    EXPECT_EQ("there is no command 'push' (see rk-socket --help)", misuseOf({"push", "ipc://a"}));
}

} // namespace rk::tools
