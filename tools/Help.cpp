#include "Help.h"

#include <sstream>

namespace rk::tools {

namespace {

constexpr std::size_t width = 80;
constexpr std::size_t column = 24;

/// The words in lines that begin at `indent`; `used` columns of the first one are taken.
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

std::string entry(const std::string& name, const std::string& text) {
    std::string line = "  " + name;
    if (line.size() + 2 > column) {
        line += "\n" + std::string(column, ' ');
    } else {
        line.resize(column, ' ');
    }
    return line + wrapped(text, column, column) + "\n";
}

/// An empty line first, and before each group its name.
std::string entries(const std::vector<ArgumentDescription>& arguments) {
    std::string text;
    std::string group;
    for (const ArgumentDescription& argument : arguments) {
        if (text.empty() || argument.group != group) {
            group = argument.group;
            text += group.empty() ? "\n" : "\n" + group + ":\n";
        }
        text += entry(signatureOf(argument), argument.text);
    }
    return text;
}

} // namespace

std::string help(const Description& program) {
    std::string text = wrapped(program.text, 0, 0) + "\n\nUsage:\n";
    std::string purposes;
    for (const CommandDescription& command : program.commands) {
        text += "  rk-socket " + command.synopsis + "\n";
        purposes += entry(command.name, command.text);
    }
    text += "\nCommands:\n" + purposes + entries(program.options) + "\nExit status:\n";
    for (const auto& [status, meaning] : program.exitStatuses) {
        text += entry(status, meaning);
    }
    return text + "\n'rk-socket COMMAND --help' shows a command's options, with examples.\n";
}

std::string help(const CommandDescription& command) {
    std::string text = command.text + ".\n\nUsage: rk-socket " + command.synopsis + "\n" +
                       entries(command.positionals) + entries(command.options) +
                       "\nTIME is a number and us, ms, s (also without a unit) or min.\n\nExamples:\n";
    for (const Example& example : command.examples) {
        text += "  # " + example.purpose + "\n  " + example.command + "\n";
    }
    return text;
}

} // namespace rk::tools
