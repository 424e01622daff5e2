#include "BashCompletion.h"

#include <map>
#include <set>

namespace rk::tools::documents {

namespace {

const char* const start = R"(# bash completion for rk-socket

_rk_socket() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=""
    COMPREPLY=()
    case $previous in
)";

const char* const middle = R"(    esac
    if ((COMP_CWORD == 1)); then
        words="@COMMANDS@ --help --version"
    elif [[ $current == -* ]]; then
        case ${COMP_WORDS[1]} in
)";

const char* const end = R"(        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _rk_socket rk-socket
)";

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

const char* const files = R"(        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
)";

const char* const folders = R"(        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
)";

/// The lines that suggest what may stand behind an option.
std::string completionOf(const ArgumentDescription& option) {
    if (!option.choices.empty()) {
        return "        mapfile -t COMPREPLY < <(compgen -W \"" + joined(option.choices, " ") + "\" -- \"$current\")\n";
    }
    return isFile(option) ? files : isFolder(option) ? folders : "";
}

} // namespace

std::string bashCompletion(const Description& program) {
    std::map<std::string, std::set<std::string>> spellingsByCompletion;
    std::vector<std::string> commands;
    std::string options;
    for (const CommandDescription& command : program.commands) {
        commands.push_back(command.name);
        std::vector<std::string> words;
        for (const ArgumentDescription& option : command.options) {
            words.insert(words.end(), option.spellings.begin(), option.spellings.end());
            if (!option.placeholder.empty()) {
                spellingsByCompletion[completionOf(option)].insert(option.spellings.begin(), option.spellings.end());
            }
        }
        options += "        " + command.name + ") words=\"" + joined(words, " ") + "\" ;;\n";
    }
    std::string text = start;
    for (const auto& [completion, spellings] : spellingsByCompletion) {
        text += "    " + joined({spellings.begin(), spellings.end()}, " | ") + ")\n" + completion +
                "        return\n        ;;\n";
    }
    const std::string slot = "@COMMANDS@";
    std::string rest = middle;
    rest.replace(rest.find(slot), slot.size(), joined(commands, " "));
    return text + rest + options + end;
}

} // namespace rk::tools::documents
