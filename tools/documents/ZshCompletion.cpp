#include "ZshCompletion.h"

#include "Options.h"

namespace rk::tools::documents {

namespace {

const char* const start = R"(#compdef rk-socket

_rk_socket() {
    local context state state_descr line
    typeset -A opt_args
    _arguments -C \
        '(- *)'{-h,--help}'[show this help]' \
        '(- *)--version[show the version]' \
        '1:command:((@COMMANDS@))' \
        '*:: :->arguments'
    [[ $state == arguments ]] || return
    case $words[1] in
)";

const char* const end = R"(    esac
}

_rk_socket "$@"
)";

/// For a text in single quotes, of which zsh's completion reads brackets and colons itself.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\'') {
            result += "'\\''";
        } else if (character == '[' || character == ']' || character == ':' || character == '\\') {
            result += std::string("\\") + character;
        } else {
            result += character;
        }
    }
    return result;
}

std::string valueOf(const CLI::Option& option) {
    const std::string placeholder = placeholderOf(option);
    if (placeholder.empty()) {
        return "";
    }
    std::string values;
    for (const std::string& choice : choicesOf(spellingsOf(option).back())) {
        values += (values.empty() ? "" : " ") + choice;
    }
    const std::string action = !values.empty()         ? "(" + values + ")"
                               : placeholder == "FILE" ? "_files"
                               : placeholder == "DIR"  ? "_files -/"
                                                       : " ";
    return ":" + placeholder + ":" + action;
}

std::string specificationOf(const CLI::Option& option) {
    const auto spellings = spellingsOf(option);
    const std::string tail = "'[" + escaped(option.get_description()) + "]" + valueOf(option) + "'";
    const bool repeatable = option.get_items_expected_max() > 1;
    if (spellings.size() == 1) {
        return (repeatable ? "'*'" : "") + spellings.front() + tail;
    }
    return "'(" + spellings[0] + " " + spellings[1] + ")'{" + spellings[0] + "," + spellings[1] + "}" + tail;
}

} // namespace

std::string zshCompletion(const CLI::App& app) {
    std::string commands;
    std::string cases;
    for (const CLI::App* command : app.get_subcommands({})) {
        commands += (commands.empty() ? "" : " ") + command->get_name() + "\\:\"" + command->get_description() + "\"";
        cases += "    " + command->get_name() + ")\n        _arguments";
        for (const CLI::Option* option : optionsOf(*command)) {
            cases += " \\\n            " + specificationOf(*option);
        }
        cases += " \\\n            '*: : '\n        ;;\n";
    }
    const std::string slot = "@COMMANDS@";
    std::string text = start;
    text.replace(text.find(slot), slot.size(), commands);
    return text + cases + end;
}

} // namespace rk::tools::documents
