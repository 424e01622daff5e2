#include "cli/Formatter.h"

#include <algorithm>
#include <numeric>
#include <sstream>

namespace rk::tools {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t column = 27;
const std::string examplesTitle = "\nExamples:\n";

/// `name` in the first column, and `description` in lines in the second.
std::string entry(const std::string& name, const std::string& description) {
    const std::string indentation(column, ' ');
    std::string text = "  " + name;
    text += text.size() < column ? std::string(column - text.size(), ' ') : "\n" + indentation;
    std::size_t used = column - 1;
    std::istringstream words(description);
    for (std::string word; words >> word; used += 1 + word.size()) {
        if (used + 1 + word.size() > width) {
            text += "\n" + indentation;
            used = column - 1;
        } else if (used >= column) {
            text += ' ';
        }
        text += word;
    }
    return text + "\n";
}

/// "rk-socket pub [OPTION...] ENDPOINT [MESSAGE...]".
std::string usageOf(const CLI::App* command) {
    const CLI::App* const parent = command->get_parent();
    std::string usage = (parent != nullptr ? parent->get_name() + " " : "") + command->get_name() + " [OPTION...]";
    for (const CLI::Option* const argument : command->get_options()) {
        if (argument->get_positional()) {
            const std::string name = argument->get_name(true) + (argument->get_items_expected_max() > 1 ? "..." : "");
            usage += argument->get_required() ? " " + name : " [" + name + "]";
        }
    }
    return usage + (parent != nullptr ? "" : " COMMAND");
}

std::string entryOf(const CLI::Option* option) {
    std::string name = option->get_name(option->get_positional(), !option->get_positional());
    if (!option->get_positional() && option->get_items_expected_max() > 0) {
        const std::string value = option->get_default_str();
        name += " " + option->get_type_name() + (value.empty() ? "" : "=" + value);
    }
    return entry(name, option->get_description());
}

/// The arguments, and then each group of options, with titles.
std::string optionsOf(const CLI::App* command, bool withHelp) {
    std::vector<std::string> groups = command->get_groups();
    groups.insert(groups.begin(), "Arguments");
    std::string text;
    for (const std::string& group : groups) {
        std::string entries;
        for (const CLI::Option* const option : command->get_options()) {
            const std::string groupOfOption = option->get_positional() ? "Arguments" : option->get_group();
            if (groupOfOption == group && (withHelp || option != command->get_help_ptr())) {
                entries += entryOf(option);
            }
        }
        if (!entries.empty()) {
            text.append("\n").append(group).append(":\n").append(entries);
        }
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

/// The options of all commands, then the notes of all commands, each once, and all examples.
std::string everythingOf(const std::vector<const CLI::App*>& commands) {
    std::string options;
    std::string notes;
    std::string examples = examplesTitle;
    for (const CLI::App* const command : commands) {
        options +=
            "\n" + usageOf(command) + ":\n" + indented(command->get_description() + "\n" + optionsOf(command, false));
        const std::string footer = command->get_footer();
        const std::size_t end = footer.find(examplesTitle);
        examples += footer.substr(end + examplesTitle.size());
        for (std::size_t place = 0; place < end;) {
            const std::size_t next = std::min(footer.find("\n\n", place + 1) + 1, end);
            const std::string note = footer.substr(place, next - place);
            notes += notes.find(note) == std::string::npos ? note : "";
            place = next;
        }
    }
    return options + notes + examples;
}

} // namespace

std::string Formatter::make_help(const CLI::App* command, std::string /*name*/, CLI::AppFormatMode mode) const {
    const auto commands = command->get_subcommands({});
    std::string text = command->get_description() + "\nUsage: " + usageOf(command) + "\n" + optionsOf(command, true);
    text += commands.empty() ? "" : "\nCommands:\n";
    if (mode == CLI::AppFormatMode::All) {
        return text + everythingOf(commands) + command->get_footer();
    }
    for (const CLI::App* const part : commands) {
        text += entry(part->get_name(), part->get_description());
    }
    return text + command->get_footer();
}

void endHelp(CLI::App& command, const std::vector<std::string>& notes, const std::vector<Example>& examples) {
    const auto has = [&command](const std::string& placeholder) {
        return !command.get_options([&](const CLI::Option* option) { return option->get_type_name() == placeholder; })
                    .empty();
    };
    std::string text;
    text += has("TIME") ? "\nTIME is a number and us, ms, s (also without a unit) or min.\n" : "";
    text += has("SIZE") ? "\nSIZE is a number of bytes, or a number and KiB, MiB, GiB, kB, MB or GB.\n" : "";
    text = std::accumulate(notes.begin(), notes.end(), text) + examplesTitle;
    for (const Example& example : examples) {
        text += "  # " + example.purpose + "\n    " + example.command + "\n";
    }
    command.footer(text);
}

} // namespace rk::tools
