#include "CommandLine.h"

#include "HelpFormatter.h"
#include "Interface.h"

#include <algorithm>
#include <memory>

namespace rk::tools {

namespace {

// The parser takes an argument in brackets for a list and splits it at its commas. A message in brackets is a message:
// a mark in front hides it.
constexpr char mark = '\1';

std::string hidden(const std::string& argument) {
    const bool looksLikeList = argument.size() > 1 && argument.front() == '[' && argument.back() == ']';
    return looksLikeList ? mark + argument : argument;
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
    std::vector<std::string> arguments;
    for (int index = argc - 1; index > 0; --index) {
        arguments.push_back(hidden(argv[index]));
    }
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
