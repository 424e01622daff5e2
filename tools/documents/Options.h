#pragma once

#include "Interface.h"

namespace rk::tools::documents {

/// The options of a subcommand, those in groups of their own too, without the positional ones.
inline std::vector<const CLI::Option*> optionsOf(const CLI::App& command) {
    std::vector<const CLI::Option*> options;
    const auto add = [&options](const CLI::App& app) {
        for (const CLI::Option* option : app.get_options()) {
            if (option->nonpositional()) {
                options.push_back(option);
            }
        }
    };
    add(command);
    for (const CLI::App* group : command.get_subcommands({})) {
        add(*group);
    }
    return options;
}

/// "-n" and "--count".
inline std::vector<std::string> spellingsOf(const CLI::Option& option) {
    std::vector<std::string> spellings;
    for (const std::string& name : option.get_snames()) {
        spellings.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        spellings.push_back("--" + name);
    }
    return spellings;
}

/// What the option's value is called; empty if it takes none.
inline std::string placeholderOf(const CLI::Option& option) {
    return option.get_items_expected_max() == 0 ? "" : option.get_type_name();
}

} // namespace rk::tools::documents
