#include "cli/Formatter.h"

#include <algorithm>
#include <sstream>

namespace rk::tools {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t column = 27;
const std::string examplesTitle = "\nExamples:\n";

std::string wrapped(const std::string& text) {
    std::string result;
    std::size_t used = 0;
    std::istringstream words(text);
    for (std::string word; words >> word; used += word.size()) {
        if (used > 0 && used + 1 + word.size() > width - column) {
            result += '\n';
            used = 0;
        } else if (used > 0) {
            result += ' ';
            ++used;
        }
        result += word;
    }
    return result;
}

} // namespace

Formatter::Formatter() {
    column_width(column);
    label("OPTIONS", "OPTION...");
    label("SUBCOMMAND", "COMMAND");
    label("Positionals", "Arguments");
}

std::string Formatter::make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const {
    std::string text = CLI::Formatter::make_help(command, name, mode);
    if (mode == CLI::AppFormatMode::All) {
        text += examplesTitle;
        for (const CLI::App* const part : command->get_subcommands({})) {
            const std::string footer = part->get_footer();
            text += footer.substr(std::min(footer.size(), footer.find(examplesTitle) + examplesTitle.size()));
        }
    }
    return CLI::detail::find_and_replace(text, "\n\n\n", "\n\n");
}

/// A command in --help-all: its usage as the title, and all but the examples indented below.
std::string Formatter::make_expanded(const CLI::App* command) const {
    const std::string usage = make_usage(command, command->get_parent()->get_name() + " " + command->get_name());
    const std::string title = usage.substr(usage.find(' ') + 1, usage.size() - usage.find(' ') - 2);
    const std::string purpose = "\n  " + command->get_description() + "\n";
    const std::string body = CLI::Formatter::make_expanded(command);
    return "\n" + title + ":" + purpose + body.substr(body.find(purpose) + purpose.size() - 1);
}

std::string Formatter::make_footer(const CLI::App* command) const {
    return command->get_footer();
}

std::string Formatter::make_option_opts(const CLI::Option* option) const {
    if (option->get_positional() || option->get_items_expected_max() == 0) {
        return "";
    }
    const std::string value = option->get_default_str();
    return " " + option->get_type_name() + (value.empty() ? "" : "=" + value);
}

std::string Formatter::make_option_desc(const CLI::Option* option) const {
    return wrapped(option->get_description());
}

void addExamples(CLI::App& command, const std::vector<Example>& examples) {
    std::string text = "TIME is a number and us, ms, s (also without a unit) or min.\n";
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
