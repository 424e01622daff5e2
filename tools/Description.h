#pragma once

#include <string>
#include <utility>
#include <vector>

/// \file
/// What there is to say about the command line, for the help, the manual page and the shells' completions.

namespace rk::tools {

struct ArgumentDescription {
    std::vector<std::string> spellings; ///< "-n" and "--count"; "ENDPOINT" where only the place tells what it is
    std::string placeholder;            ///< what its value is called; empty if it takes none
    std::vector<std::string> choices;   ///< the words that it takes; none if it takes anything
    std::string text;
    std::string group;
    bool repeatable = false;
};

struct Example {
    std::string purpose;
    std::string command;
};

struct CommandDescription {
    std::string name;
    std::string synopsis; ///< "sub ENDPOINT... [OPTION...]"
    std::string text;
    std::vector<ArgumentDescription> positionals;
    std::vector<ArgumentDescription> options; ///< those of a group stand together
    std::vector<Example> examples;
};

struct Description {
    std::string text;
    std::string version;
    std::vector<CommandDescription> commands;
    std::vector<ArgumentDescription> options;                      ///< those without a command
    std::vector<std::pair<std::string, std::string>> exitStatuses; ///< each with what it means
};

const std::vector<Example>& examplesOf(const std::string& command);
const std::vector<std::pair<std::string, std::string>>& exitStatuses();

/// "-n, --count N".
std::string signatureOf(const ArgumentDescription& argument);

/// Whether its value is a path.
bool isFile(const ArgumentDescription& argument);
bool isFolder(const ArgumentDescription& argument);

} // namespace rk::tools
