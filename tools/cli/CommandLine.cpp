#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace rk::tools {

namespace {

// The parser splits an argument in brackets at its commas, and ends a subcommand at "++". It takes each argument with a dash
// for an option, even behind "--" once it has found a message. A mark in front prevents this.
constexpr char mark = '\1';

bool needsMark(const std::string& argument) {
    const bool looksLikeList = argument.size() > 1 && argument.front() == '[' && argument.back() == ']';
    return looksLikeList || argument == "++" || (!argument.empty() && argument.front() == mark);
}

/// Returns the arguments, with a mark on each that would mislead the parser.
std::vector<std::string> prepared(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    bool messagesOnly = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (!messagesOnly && argument == "--") {
            messagesOnly = true;
        } else {
            arguments.push_back(messagesOnly || needsMark(argument) ? mark + argument : argument);
        }
    }
    return arguments;
}

std::string revealed(const std::string& argument) {
    return !argument.empty() && argument.front() == mark ? argument.substr(1) : argument;
}

/// Removes the marks before anything looks at a value.
void revealValues(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        option->transform(revealed, "");
    }
    for (CLI::App* part : app.get_subcommands({})) {
        revealValues(*part);
    }
}

std::string inOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

/// The command line up to the subcommand, if the user named one.
std::string startOf(const CLI::App& program) {
    const auto commands = program.get_subcommands();
    return program.get_name() + (commands.empty() ? "" : " " + commands.front()->get_name());
}

} // namespace

std::optional<std::string> parseCommandLine(CLI::App& program, int argc, const char* const* argv) {
    revealValues(program);
    auto arguments = prepared(argc, argv);
    std::reverse(arguments.begin(), arguments.end()); // the parser begins at the end
    try {
        program.parse(arguments);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        return program.help();
    } catch (const CLI::CallForAllHelp&) {
        return program.help("", CLI::AppFormatMode::All);
    } catch (const CLI::CallForVersion&) {
        return program.get_name() + " " + program.version() + "\n";
    } catch (const CLI::ParseError& error) {
        const bool unknown = program.get_subcommands().empty() && argc > 1;
        const std::string reason =
            unknown ? "there is no command '" + std::string(argv[1]) + "'" : inOneLine(error.what());
        throw Misuse(reason + " (see " + startOf(program) + " --help)");
    }
}

} // namespace rk::tools
