#pragma once

#include "cli/Formatter.h"
#include "cli/Validators.h"
#include "messages/Codec.h"
#include "messages/MessageCodec.h"
#include "traffic/Outgoing.h"
#include "traffic/Wire.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// \file
/// The options that several subcommands have. Each function adds some to `command`. Parsing writes their values into the
/// settings, which must live as long as the command. The values that the settings have before are the defaults.

namespace rk::tools {

constexpr const char* messageGroup = "Messages"; // the default
constexpr const char* timeGroup = "Number and time";
constexpr const char* socketGroup = "Socket";
constexpr const char* networkGroup = "Network";

/// Adds the option `name`, whose value goes into `target`, which may be a std::optional.
template <class Value, class Target>
CLI::Option* addValue(CLI::App& command, const std::string& name, const std::string& placeholder, Target& target,
                      const std::string& description, const char* group) {
    return command.add_option_function<Value>(
                      name, [&target](const Value& value) { target = value; }, description)
        ->type_name(placeholder)
        ->group(group);
}

/// Adds an option for a text that cannot be empty, such as a path.
CLI::Option* addText(CLI::App& command, const std::string& name, const std::string& placeholder,
                     std::optional<std::string>& target, const std::string& description,
                     const char* group = messageGroup);

/// Adds an option for such texts, which may be given several times.
CLI::Option* addTexts(CLI::App& command, const std::string& name, const std::string& placeholder,
                      std::vector<std::string>& target, const std::string& description);

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& target, const std::string& description,
                     const char* group = messageGroup);

/// Adds an option for a duration. The help shows the default, if `target` has one.
CLI::Option* addTime(CLI::App& command, const std::string& name, std::optional<std::chrono::nanoseconds>& target,
                     const std::string& description);
CLI::Option* addTime(CLI::App& command, const std::string& name, std::chrono::nanoseconds& target,
                     const std::string& description);

/// Adds an option for a number of bytes.
CLI::Option* addSize(CLI::App& command, const std::string& name, std::size_t& target, const std::string& description);

/// Lets the user give only one of the options `first` and `others`.
void exclude(CLI::App& command, const std::string& first, const std::vector<std::string>& others);

/// --key and --trust.
void addKeys(CLI::App& command, KeyFiles& files);

void addEndpoint(CLI::App& command, SocketSettings& settings, const std::string& description);
void addEndpoints(CLI::App& command, SocketSettings& settings, const std::string& description);

/// --bind, --connect, --fifo and the options of the network. `queue` is the direction of the queue, and `listens` what
/// the command does without the first two.
void addSocket(CLI::App& command, SocketSettings& settings, const std::string& queue, bool listens);

/// --rate and --close-policy. `usual` is the policy without the option.
void addSending(CLI::App& command, SocketSettings& settings, const std::string& usual);

/// MESSAGE, --file, --lines and --whole.
void addContents(CLI::App& command, SourceSettings& settings, const std::string& description);

enum class Direction {
    Sends,
    Receives,
    Both
};

/// The options on the form of messages: --hex, --format, --separator, --parts, --json and so on, and those of the schema.
void addMessages(CLI::App& command, CodecSettings& codec, EnvelopeSettings& envelope, Direction direction);

/// --proto, --descriptor-set and --proto-path.
void addSchemaFiles(CLI::App& command, CodecSettings& settings);

void addCount(CLI::App& command, Repetition& repetition, const std::string& description);

} // namespace rk::tools
