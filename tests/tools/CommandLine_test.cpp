#include "cli/CommandLine.h"
#include "commands/Command.h"
#include "support/Errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <vector>

namespace rk::tools {

namespace {

using testing::ElementsAre;

class CommandLine : public testing::Test {
protected:
    CommandLine() {
        CLI::App* const send = program.add_subcommand("send", "Send messages");
        send->add_option("MESSAGE", messages);
        send->add_option("--proto", schemas)->allow_extra_args(false);
        send->add_option("--text", text);
        program.set_version_flag("--version", "1.2.3");
        program.require_subcommand(1);
    }

    std::optional<std::string> parse(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "program");
        return parseCommandLine(program, static_cast<int>(arguments.size()), arguments.data());
    }

    std::string misuseOf(const std::vector<const char*>& arguments) {
        return rk::tests::textThrownBy<Misuse>([&] { parse(arguments); });
    }

    CLI::App program{"", "program"};
    std::vector<std::string> messages;
    std::vector<std::string> schemas;
    std::string text;
};

} // namespace

TEST_F(CommandLine, KeepsMessagesUnchanged) {
    EXPECT_EQ(std::nullopt, parse({"send", "[1,2]", "{}", "", "[]", "a b", "--", "--text", "--"}));

    EXPECT_THAT(messages, ElementsAre("[1,2]", "{}", "", "[]", "a b", "--text", "--"));
}

TEST_F(CommandLine, KeepsValuesInBracketsUnchanged) {
    parse({"send", "--text", "[ 1,2 ]", "--proto", "[1,2]", "--proto", "[3]"});

    EXPECT_EQ("[ 1,2 ]", text);
    EXPECT_THAT(schemas, ElementsAre("[1,2]", "[3]"));
}

TEST_F(CommandLine, TakesASchemaPerOption) {
    parse({"send", "--proto", "a.proto", RK_PLANT_SCHEMA, "x", "--proto", "d.proto"});

    EXPECT_THAT(schemas, ElementsAre("a.proto", "d.proto"));
    EXPECT_THAT(messages, ElementsAre(RK_PLANT_SCHEMA, "x"));
}

TEST_F(CommandLine, KeepsControlCharactersUnchanged) {
    for (int character = 2; character < 0x20; ++character) {
        const std::string argument = std::string(1, static_cast<char>(character)) + "a";
        messages.clear();
        parse({"send", argument.c_str(), "--text", argument.c_str()});

        EXPECT_THAT(messages, ElementsAre(argument)) << character;
        EXPECT_EQ(argument, text);
    }
}

TEST_F(CommandLine, KeepsMisleadingTextUnchanged) {
    parse({"send", "++", "+", "\1\1", "--", "\1"});
    EXPECT_THAT(messages, ElementsAre("++", "+", "\1\1", "\1"));
}

TEST_F(CommandLine, ReturnsTheVersionOrHelpWhenAsked) {
    EXPECT_EQ("program 1.2.3\n", parse({"--version"}));
    EXPECT_THAT(parse({"send", "--help"}).value(), testing::HasSubstr("program send"));
}

TEST_F(CommandLine, NamesTheOptionThatDoesNotExist) {
    EXPECT_EQ("The following argument was not expected: --txet (see program send --help)",
              misuseOf({"send", "--txet", "3"}));
}

TEST_F(CommandLine, NamesTheCommandThatDoesNotExist) {
    EXPECT_EQ("there is no command 'push' (see program --help)", misuseOf({"push", "ipc://a"}));
}

} // namespace rk::tools
