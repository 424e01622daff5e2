#include "cli/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace rk::tools {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A command with all options, bound to settings with defaults.
class Options : public testing::Test {
protected:
    Options() {
        command.formatter(std::make_shared<Formatter>());
        addEndpoints(command, socket, "where");
        addSending(command, socket, "drop");
        addSocket(command, socket, "outgoing", true);
        addMessages(command, codec, envelope, Direction::Both);
        addCount(command, repetition, "how many");
        addTime(command, "--delay", delay, "how long before");
        addTime(command, "-t,--timeout", timeout, "how long");
        addSize(command, "--max-size", socket.maxSize, "how large");
    }

    void parse(std::vector<std::string> arguments) {
        std::reverse(arguments.begin(), arguments.end()); // the parser begins at the end
        command.parse(arguments);
    }

    CLI::App command{"", "command"};
    SocketSettings socket;
    CodecSettings codec;
    EnvelopeSettings envelope;
    Repetition repetition;
    std::chrono::nanoseconds delay = std::chrono::milliseconds(500);
    std::optional<std::chrono::nanoseconds> timeout = std::chrono::seconds(5);
};

} // namespace

TEST_F(Options, KeepTheirDefaults) {
    parse({"ipc://a", "ipc://b"});

    EXPECT_THAT(socket.endpoints, ElementsAre("ipc://a", "ipc://b"));
    EXPECT_EQ(std::nullopt, socket.rate);
    EXPECT_EQ(std::nullopt, socket.fifo);
    EXPECT_EQ(std::nullopt, socket.closePolicy);
    EXPECT_EQ(std::nullopt, socket.binds);
    EXPECT_EQ(Format::Text, codec.format);
    EXPECT_EQ(std::nullopt, codec.type);
    EXPECT_THAT(codec.protoFiles, IsEmpty());
    EXPECT_EQ(std::nullopt, repetition.count);
    EXPECT_EQ(std::chrono::seconds(5), timeout);
    EXPECT_EQ(std::chrono::milliseconds(500), delay);
    EXPECT_EQ(67108864U, socket.maxSize);
}

TEST_F(Options, TakeTheGivenValues) {
    parse({"ipc://a", "--rate", "8", "--fifo", "0", "--close-policy", "wait", "--hex", "--format", "hex", "--bind",
           "-n", "3", "-t", "2s", "--delay", "10ms", "--max-size", "1KiB"});

    EXPECT_EQ(8U, socket.rate);
    EXPECT_EQ(0, socket.fifo);
    EXPECT_EQ(rk::socket::ClosePolicy::WaitForDelivery, socket.closePolicy);
    EXPECT_EQ(true, socket.binds);
    EXPECT_TRUE(codec.hex);
    EXPECT_EQ(Format::Hex, codec.format);
    EXPECT_EQ(3U, repetition.count);
    EXPECT_EQ(std::chrono::seconds(2), timeout);
    EXPECT_EQ(std::chrono::milliseconds(10), delay);
    EXPECT_EQ(1024U, socket.maxSize);
}

TEST_F(Options, ShowDefaultsInTheHelp) {
    const std::string help = command.help();

    for (const char* const text :
         {"--format FORMAT=text", "--timeout TIME=5s", "--delay TIME=500ms", "--max-size SIZE=64MiB"}) {
        EXPECT_THAT(help, HasSubstr(text));
    }
}

TEST_F(Options, RefuseEmptyValues) {
    for (const std::string name :
         {"--rate", "--fifo", "--close-policy", "--proto", "--type", "--proto-path", "--reply-type", "--descriptor-set",
          "--proto-part", "--separator", "--template", "--count", "--timeout", "--delay", "--max-size"}) {
        EXPECT_THROW(parse({"ipc://a", name, "", "--proto", "f", "--type", "T"}), CLI::ValidationError) << name;
    }
    EXPECT_THROW(parse({"ipc://a", "--format", ""}), CLI::ValidationError); // excludes --proto
    EXPECT_THROW(parse({""}), CLI::ValidationError);
}

TEST_F(Options, NeedSchemaAndTypeTogether) {
    EXPECT_THROW(parse({"ipc://a", "--proto", "f"}), CLI::RequiresError);
    EXPECT_THROW(parse({"ipc://a", "--type", "T"}), CLI::RequiresError);
    EXPECT_THROW(parse({"ipc://a", "--proto", "f", "--type", "T", "--hex"}), CLI::ExcludesError);
    EXPECT_THROW(parse({"ipc://a", "--proto", "f", "--type", "T", "--format", "hex"}), CLI::ExcludesError);
}

TEST_F(Options, ExcludeBindAndConnect) {
    EXPECT_THROW(parse({"ipc://a", "--bind", "--connect"}), CLI::ExcludesError);
}

TEST_F(Options, UseTheTypeForRepliesWhenAlone) {
    parse({"ipc://a", "--proto", "f", "--type", "T"});
    EXPECT_EQ("T", codec.typeOfReplies());

    parse({"ipc://a", "--proto", "f", "--type", "T", "--reply-type", "U"});
    EXPECT_EQ("U", codec.typeOfReplies());
}

} // namespace rk::tools
