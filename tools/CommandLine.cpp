#include "CommandLine.h"

#include "Endpoint.h"
#include "Help.h"
#include "Interface.h"

#include <algorithm>

namespace rk::tools {

namespace {

const char* const programName = "rk-socket";

// The parser takes an argument in brackets for a list, which it splits at its commas, and one that begins with a dash
// for an option, even behind "--" once it has found a message. A mark in front hides what they look like.
constexpr char mark = '\1';

bool looksLikeList(const std::string& argument) {
    return argument.size() > 1 && argument.front() == '[' && argument.back() == ']';
}

bool isSchema(const std::string& argument) {
    const std::string ending = ".proto";
    return argument.size() > ending.size() &&
           argument.compare(argument.size() - ending.size(), ending.size(), ending) == 0;
}

/// The arguments as the parser wants them: what would mislead it hidden, and --proto before every schema that follows
/// one.
std::vector<std::string> prepared(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    bool messagesOnly = false;
    bool amongSchemas = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (messagesOnly) {
            arguments.push_back(mark + argument);
        } else if (argument == "--") {
            messagesOnly = true;
        } else if (amongSchemas && isSchema(argument)) {
            arguments.insert(arguments.end(), {"--proto", argument});
        } else {
            amongSchemas = index > 1 && std::string(argv[index - 1]) == "--proto";
            arguments.push_back(looksLikeList(argument) ? mark + argument : argument);
        }
    }
    return arguments;
}

std::string revealed(const std::string& argument) {
    return !argument.empty() && argument.front() == mark ? argument.substr(1) : argument;
}

/// Has the marks taken away before anything looks at a value.
void revealValues(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        option->transform(revealed, "");
    }
    for (CLI::App* part : app.get_subcommands({})) {
        revealValues(*part);
    }
}

/// What the parser has not looked at. Throws std::runtime_error.
void complete(Settings& settings) {
    for (const std::string& endpoint : settings.endpoints) {
        endpointFromText(endpoint);
    }
    if (settings.replyType.empty()) {
        settings.replyType = settings.type;
    }
}

std::string inOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() != 0;
}

ArgumentDescription describe(const CLI::Option& option, const std::string& group) {
    ArgumentDescription argument;
    for (const std::string& name : option.get_snames()) {
        argument.spellings.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        argument.spellings.push_back("--" + name);
        argument.choices = choicesOf(argument.spellings.back());
    }
    if (option.get_positional()) {
        argument.spellings.push_back(option.get_name(true));
    } else if (takesValue(option)) {
        argument.placeholder = option.get_type_name();
    }
    argument.text = option.get_description();
    argument.group = group;
    argument.repeatable = option.get_items_expected_max() > 1;
    return argument;
}

CommandDescription describeCommand(const CLI::App& command) {
    CommandDescription description{
        command.get_name(), command.get_name(), command.get_description(), {}, {}, examplesOf(command.get_name())};
    for (const CLI::App* group : command.get_subcommands({})) {
        for (const CLI::Option* option : group->get_options()) {
            description.options.push_back(
                describe(*option, group->get_group() + " (" + group->get_description() + ")"));
        }
    }
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            description.positionals.push_back(describe(*option, ""));
            const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
            description.synopsis += option->get_required() ? " " + name : " [" + name + "]";
        }
    }
    description.synopsis += " [OPTION...]";
    for (const std::string& group : command.get_groups()) {
        for (const CLI::Option* option : command.get_options()) {
            if (option->nonpositional() && option->get_group() == group) {
                description.options.push_back(describe(*option, group));
            }
        }
    }
    return description;
}

Description describeProgram(const CLI::App& app) {
    Description description{app.get_description(), app.version(), {}, {}, exitStatuses()};
    for (const CLI::App* command : app.get_subcommands({})) {
        description.commands.push_back(describeCommand(*command));
    }
    for (const CLI::Option* option : app.get_options()) {
        description.options.push_back(describe(*option, ""));
    }
    return description;
}

} // namespace

std::variant<Settings, Information, Misuse> parseCommandLine(int argc, const char* const* argv) {
    Settings settings;
    CLI::App app("", programName);
    describeInterface(app, settings);
    revealValues(app);
    auto arguments = prepared(argc, argv);
    std::reverse(arguments.begin(), arguments.end()); // the parser begins at the end
    const auto refuse = [&app](const std::string& reason) {
        const auto commands = app.get_subcommands();
        const std::string command = commands.empty() ? "" : " " + commands.front()->get_name();
        return Misuse{inOneLine(reason) + " (see rk-socket" + command + " --help)"};
    };
    try {
        app.parse(arguments);
        complete(settings);
    } catch (const CLI::CallForHelp&) {
        const auto commands = app.get_subcommands();
        return Information{commands.empty() ? help(describeProgram(app)) : help(describeCommand(*commands.front()))};
    } catch (const CLI::CallForVersion&) {
        return Information{std::string(programName) + " " + app.version() + "\n"};
    } catch (const CLI::ParseError& error) {
        if (app.get_subcommands().empty() && argc > 1) {
            return refuse("there is no command '" + std::string(argv[1]) + "'");
        }
        return refuse(error.what());
    } catch (const std::exception& error) {
        return refuse(std::string("ENDPOINT: ") + error.what());
    }
    return settings;
}

Description describeCommandLine() {
    Settings settings;
    CLI::App app("", programName);
    describeInterface(app, settings);
    return describeProgram(app);
}

} // namespace rk::tools
