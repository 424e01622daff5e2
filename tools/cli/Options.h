#pragma once

#include "cli/Formatter.h"
#include "cli/Validators.h"
#include "messages/Codec.h"
#include "messages/MessageCodec.h"
#include "traffic/Inbox.h"
#include "traffic/Outgoing.h"
#include "traffic/Wire.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

/// \file
/// The options that several subcommands have. Each function adds some to `command`; parsing writes their values into
/// the settings, which have to live as long as the command. The values that the settings have before are the defaults.

namespace rk::tools {

constexpr const char* messageGroup = "Messages";
constexpr const char* timeGroup = "Number and time";
constexpr const char* socketGroup = "Socket";
constexpr const char* networkGroup = "Network";

/// Adds the option `name`, of which `target` takes the value. `target` may be a std::optional.
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
                     std::optional<std::string>& target, const std::string& description, const char* group);

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& target, const std::string& description,
                     const char* group);

/// Lets the user give only one of the options `first` and `others`.
void exclude(CLI::App& command, const std::string& first, const std::vector<std::string>& others);

/// --key and --trust.
void addKeys(CLI::App& command, KeyFiles& files);

void addEndpoint(CLI::App& command, SocketSettings& settings, const std::string& description);
void addEndpoints(CLI::App& command, SocketSettings& settings, const std::string& description);

/// --bind, --connect, --fifo and the options of the network. `queue` names the queue that matters, and `listens` tells
/// what the command does without the first two.
void addSocket(CLI::App& command, SocketSettings& settings, const std::string& queue, bool listens);

/// `usual` describes what the command does without the option.
void addClosePolicy(CLI::App& command, SocketSettings& settings, const std::string& usual);
void addRate(CLI::App& command, SocketSettings& settings);

/// MESSAGE, --file, --lines and --whole.
void addContents(CLI::App& command, SourceSettings& settings, const std::string& things);

void addHex(CLI::App& command, CodecSettings& settings);
void addFormat(CLI::App& command, CodecSettings& settings, const std::string& things);

/// --separator and, for a command that has --format, --parts, --json, --timestamps and --template. Comes after --format.
void addEnvelope(CLI::App& command, EnvelopeSettings& settings);

/// --proto, --descriptor-set, --type, --proto-path and --proto-part, and --all-fields for a command that has --format.
/// Comes after --format, --hex and addEnvelope.
void addSchema(CLI::App& command, CodecSettings& settings, EnvelopeSettings& envelope, const std::string& things);

/// --proto, --descriptor-set and --proto-path alone.
void addSchemaFiles(CLI::App& command, CodecSettings& settings);
void addReplyType(CLI::App& command, CodecSettings& settings);

/// --count.
void addCount(CLI::App& command, Repetition& repetition, const std::string& description);
void addTime(CLI::App& command, const std::string& name, std::chrono::nanoseconds& time,
             const std::string& description);

/// `things` are too long when they are longer.
void addMaxSize(CLI::App& command, std::size_t& maxSize, const std::string& description);

/// --timeout and --max-size. `description` is that of --timeout.
void addInbox(CLI::App& command, InboxSettings& settings, const std::string& description);

} // namespace rk::tools
