#include "CommandLine.h"

#include "HelpFormatter.h"
#include "Interface.h"

#include <algorithm>
#include <memory>

namespace rk::tools {

namespace {

// The parser takes an argument in brackets for a list, which it splits at its commas, and one that begins with a dash
// for an option, even behind "--" once it has found a message. A mark in front hides what they look like.
constexpr char mark = '\1';

bool looksLikeList(const std::string& argument) {
    return argument.size() > 1 && argument.front() == '[' && argument.back() == ']';
}

/// The arguments as the parser wants them: the last one first.
std::vector<std::string> hidden(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    bool messagesOnly = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument == "--" && !messagesOnly) {
            messagesOnly = true;
        } else if (looksLikeList(argument) || (messagesOnly && argument.rfind('-', 0) == 0)) {
            arguments.push_back(mark + argument);
        } else {
            arguments.push_back(argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

void reveal(std::string& argument) {
    if (!argument.empty() && argument.front() == mark) {
        argument.erase(0, 1);
    }
}

void complete(Settings& settings) {
    std::for_each(settings.messages.begin(), settings.messages.end(), reveal);
    if (settings.reply) {
        reveal(*settings.reply);
    }
    if (settings.replyType.empty()) {
        settings.replyType = settings.type;
    }
}

std::string inOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

} // namespace

std::variant<Settings, Information, Misuse> parseCommandLine(int argc, const char* const* argv) {
    Settings settings;
    CLI::App app("", "rk-socket");
    app.formatter(std::make_shared<HelpFormatter>());
    describeInterface(app, settings);
    auto arguments = hidden(argc, argv);
    try {
        app.parse(arguments);
    } catch (const CLI::CallForHelp&) {
        const auto commands = app.get_subcommands();
        return Information{commands.empty() ? app.help() : commands.front()->help()};
    } catch (const CLI::CallForVersion&) {
        return Information{"rk-socket " + app.version() + "\n"};
    } catch (const CLI::ParseError& error) {
        const auto commands = app.get_subcommands();
        if (commands.empty() && argc > 1) {
            return Misuse{"there is no command '" + std::string(argv[1]) + "' (see rk-socket --help)"};
        }
        const std::string command = commands.empty() ? "" : " " + commands.front()->get_name();
        return Misuse{inOneLine(error.what()) + " (see rk-socket" + command + " --help)"};
    }
    complete(settings);
    return settings;
}

} // namespace rk::tools
