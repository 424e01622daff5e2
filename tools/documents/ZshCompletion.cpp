#include "ZshCompletion.h"

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

std::string valueOf(const ArgumentDescription& option) {
    if (option.placeholder.empty()) {
        return "";
    }
    std::string values;
    for (const std::string& choice : option.choices) {
        values += (values.empty() ? "" : " ") + choice;
    }
    const std::string action = !values.empty()    ? "(" + values + ")"
                               : isFile(option)   ? "_files"
                               : isFolder(option) ? "_files -/"
                                                  : " ";
    return ":" + option.placeholder + ":" + action;
}

std::string specificationOf(const ArgumentDescription& option) {
    const auto& spellings = option.spellings;
    const std::string tail = "'[" + escaped(option.text) + "]" + valueOf(option) + "'";
    if (spellings.size() == 1) {
        return (option.repeatable ? "'*'" : "") + spellings.front() + tail;
    }
    return "'(" + spellings[0] + " " + spellings[1] + ")'{" + spellings[0] + "," + spellings[1] + "}" + tail;
}

} // namespace

std::string zshCompletion(const Description& program) {
    std::string commands;
    std::string cases;
    for (const CommandDescription& command : program.commands) {
        commands += (commands.empty() ? "" : " ") + command.name + "\\:\"" + command.text + "\"";
        cases += "    " + command.name + ")\n        _arguments";
        for (const ArgumentDescription& option : command.options) {
            cases += " \\\n            " + specificationOf(option);
        }
        cases += " \\\n            '*: : '\n        ;;\n";
    }
    const std::string slot = "@COMMANDS@";
    std::string text = start;
    text.replace(text.find(slot), slot.size(), commands);
    return text + cases + end;
}

} // namespace rk::tools::documents
