#include "HelpFormatter.h"

#include "Interface.h"

#include <sstream>

namespace rk::tools {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t column = 24;

std::string wrapped(const std::string& text, std::size_t indent, std::size_t used) {
    std::string result;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (used + 1 + word.size() > width && used > indent) {
            result += "\n" + std::string(indent, ' ');
            used = indent;
        } else if (!result.empty()) {
            result += ' ';
            ++used;
        }
        result += word;
        used += word.size();
    }
    return result;
}

std::string entry(const std::string& name, const std::string& description) {
    std::string line = "  " + name;
    if (line.size() + 2 > column) {
        line += "\n" + std::string(column, ' ');
    } else {
        line.resize(column, ' ');
    }
    return line + wrapped(description, column, column) + "\n";
}

std::string optionsOf(const CLI::App& app) {
    std::string text;
    for (const std::string& group : app.get_groups()) {
        std::string entries;
        for (const CLI::Option* option : app.get_options()) {
            if (option->get_group() == group && option->nonpositional()) {
                entries += entry(signatureOf(*option), option->get_description());
            }
        }
        text += entries.empty() ? "" : "\n" + group + ":\n" + entries;
    }
    for (const CLI::App* group : app.get_subcommands([](const CLI::App* part) { return part->get_name().empty(); })) {
        text += "\n" + group->get_group() + " (" + group->get_description() + "):\n";
        for (const CLI::Option* option : group->get_options()) {
            text += entry(signatureOf(*option), option->get_description());
        }
    }
    return text;
}

std::string positionalsOf(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            text += entry(option->get_name(true), option->get_description());
        }
    }
    return text.empty() ? text : "\n" + text;
}

std::string mainHelp(const CLI::App& app) {
    std::string text = wrapped(app.get_description(), 0, 0) + "\n\nUsage:\n";
    std::string purposes;
    for (const CLI::App* command : app.get_subcommands({})) {
        text += "  rk-socket " + synopsisOf(*command) + "\n";
        purposes += entry(command->get_name(), command->get_description());
    }
    text += "\nCommands:\n" + purposes;
    for (const CLI::Option* option : app.get_options()) {
        text += option == app.get_options().front() ? "\n" : "";
        text += entry(signatureOf(*option), option->get_description());
    }
    text += "\nExit status:\n";
    for (const auto& [status, meaning] : exitStatuses()) {
        text += entry(status, meaning);
    }
    return text + "\n'rk-socket COMMAND --help' shows a command's options, with examples.\n";
}

std::string commandHelp(const CLI::App& command) {
    std::string text = command.get_description() + ".\n\nUsage: rk-socket " + synopsisOf(command) + "\n";
    text += positionalsOf(command) + optionsOf(command);
    text += "\nTIME is a number and us, ms, s (also without a unit) or min.\n\nExamples:\n";
    for (const Example& example : examplesOf(command.get_name())) {
        text += "  # " + example.purpose + "\n  " + example.command + "\n";
    }
    return text;
}

} // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const {
    return app->get_parent() == nullptr ? mainHelp(*app) : commandHelp(*app);
}

} // namespace rk::tools
