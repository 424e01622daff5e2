#include "cli/Formatter.h"

#include <algorithm>
#include <sstream>

namespace rk::tools {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t column = 27;
const std::string examplesTitle = "\nExamples:\n";

/// `name` in the first column, and `description` in lines in the second.
std::string entry(const std::string& name, const std::string& description) {
    const std::string indentation(column, ' ');
    std::string result = "  " + name;
    result += result.size() < column ? std::string(column - result.size(), ' ') : "\n" + indentation;
    std::size_t used = 0;
    std::istringstream words(description);
    for (std::string word; words >> word; used += word.size()) {
        if (used > 0 && used + 1 + word.size() > width - column) {
            result += "\n" + indentation;
            used = 0;
        } else if (used > 0) {
            result += ' ';
            ++used;
        }
        result += word;
    }
    return result + "\n";
}

std::string nameOf(const CLI::App* command) {
    const CLI::App* const parent = command->get_parent();
    return (parent != nullptr ? parent->get_name() + " " : "") + command->get_name();
}

/// "ENDPOINT [MESSAGE...]".
std::string usageOf(const CLI::App* command) {
    std::string usage = nameOf(command) + " [OPTION...]";
    for (const CLI::Option* const argument : command->get_options()) {
        if (argument->get_positional()) {
            const std::string name = argument->get_name(true) + (argument->get_items_expected_max() > 1 ? "..." : "");
            usage += argument->get_required() ? " " + name : " [" + name + "]";
        }
    }
    return usage + (command->get_subcommands({}).empty() ? "" : " COMMAND");
}

std::string entryOf(const CLI::Option* option) {
    std::string name = option->get_name(option->get_positional(), !option->get_positional());
    if (!option->get_positional() && option->get_items_expected_max() > 0) {
        const std::string value = option->get_default_str();
        name += " " + option->get_type_name() + (value.empty() ? "" : "=" + value);
    }
    return entry(name, option->get_description());
}

/// The arguments, and then each group of options, below their titles.
std::string optionsOf(const CLI::App* command, bool withHelp) {
    std::vector<std::string> groups = command->get_groups();
    groups.insert(groups.begin(), "");
    std::string text;
    for (const std::string& group : groups) {
        std::string entries;
        for (const CLI::Option* const option : command->get_options()) {
            const bool isHelp = option == command->get_help_ptr();
            if ((option->get_positional() ? "" : option->get_group()) == group && (withHelp || !isHelp)) {
                entries += entryOf(option);
            }
        }
        text += entries.empty() ? "" : "\n" + (group.empty() ? "Arguments" : group) + ":\n" + entries;
    }
    return text;
}

std::string indented(const std::string& text) {
    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        result += (line.empty() ? "" : "  " + line) + "\n";
    }
    return result;
}

/// The commands, each in a line, or with all that they have but their examples.
std::string commandsOf(const CLI::App* program, bool whole) {
    std::string text;
    for (const CLI::App* const command : program->get_subcommands({})) {
        text += whole ? "\n" + usageOf(command) + ":\n" +
                            indented(command->get_description() + "\n" + optionsOf(command, false))
                      : entry(command->get_name(), command->get_description());
    }
    return text.empty() ? "" : "\nCommands:\n" + text;
}

std::string examplesOf(const CLI::App* program) {
    std::string text = examplesTitle;
    for (const CLI::App* const command : program->get_subcommands({})) {
        const std::string footer = command->get_footer();
        text += footer.substr(std::min(footer.size(), footer.find(examplesTitle) + examplesTitle.size()));
    }
    return text;
}

} // namespace

std::string Formatter::make_help(const CLI::App* command, std::string /*name*/, CLI::AppFormatMode mode) const {
    const bool whole = mode == CLI::AppFormatMode::All;
    const std::string footer = command->get_footer();
    return command->get_description() + "\nUsage: " + usageOf(command) + "\n" + optionsOf(command, true) +
           commandsOf(command, whole) + (footer.rfind(examplesTitle, 0) == 0 ? "" : "\n") + footer +
           (whole ? examplesOf(command) : "");
}

void addExamples(CLI::App& command, const std::vector<Example>& examples) {
    std::string text;
    const auto options =
        command.get_options([](const CLI::Option* option) { return option->get_type_name() == "TIME"; });
    if (!options.empty()) {
        text += "TIME is a number and us, ms, s (also without a unit) or min.\n";
    }
    if (command.get_option_no_throw("--max-size") != nullptr) {
        text += "SIZE is a number of bytes, or a number and KiB, MiB, GiB, kB, MB or GB.\n";
    }
    text += examplesTitle;
    for (const Example& example : examples) {
        text += "  # " + example.purpose + "\n    " + example.command + "\n";
    }
    command.footer(text);
}

} // namespace rk::tools
