#include "cli/Options.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>

namespace rk::tools {

namespace {

namespace ClosePolicy = rk::socket::ClosePolicy;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// Adds an option for one of a few words, each with its value.
template <class Value, class Target>
CLI::Option* addChoice(CLI::App& command, const std::string& name, const std::string& placeholder, Target& target,
                       const std::map<std::string, Value>& choices, const std::string& description, const char* group) {
    return command
        .add_option_function<std::string>(
            name, [&target, choices](const std::string& word) { target = choices.at(word); }, description)
        ->check(CLI::IsMember(choices).description(""))
        ->type_name(placeholder)
        ->group(group);
}

/// Refuses the option `first` without one of the others.
void needOneOf(CLI::App& command, const std::string& first, const std::vector<std::string>& others) {
    command.parse_complete_callback([&command, first, others] {
        const auto given = [&command](const std::string& name) { return command.count(name) > 0; };
        if (given(first) && std::none_of(others.begin(), others.end(), given)) {
            throw CLI::RequiresError(first, others.front());
        }
    });
}

std::string textOf(nanoseconds time) {
    const auto whole = std::chrono::duration_cast<milliseconds>(time).count();
    return whole % 1000 == 0 ? std::to_string(whole / 1000) + "s" : std::to_string(whole) + "ms";
}

template <class Target>
CLI::Option* addDuration(CLI::App& command, const std::string& name, Target& target, const std::string& description,
                         nanoseconds usual) {
    return command
        .add_option_function<double>(
            name, [&target](const double& seconds) { target = nanoseconds(static_cast<std::int64_t>(seconds * 1e9)); },
            description)
        ->transform(duration())
        ->default_str(usual.count() == 0 ? "" : textOf(usual))
        ->type_name("TIME")
        ->group(timeGroup);
}

void addReceiving(CLI::App& command, CodecSettings& codec, EnvelopeSettings& envelope) {
    addChoice<Format>(
        command, "--format", "FORMAT", codec.format,
        {{"text", Format::Text}, {"hex", Format::Hex}, {"hexdump", Format::Hexdump}, {"raw", Format::Raw}},
        "how to print messages: text (a line each, control characters escaped), hex (a line each), hexdump (lines of "
        "16 "
        "bytes) or raw (the bytes and nothing else)",
        messageGroup)
        ->default_str("text");
    addFlag(command, "--parts", envelope.parts, "print all parts of a message in one line, not each in its own line");
    addFlag(command, "--timestamps", envelope.timestamps, "begin each message with the time of its arrival (UTC)");
    addFlag(command, "--json", envelope.json,
            "print a JSON object for each message, with its time, endpoint, sequence, size and parts");
    addText(command, "--template", "TEXT", envelope.layout,
            "print TEXT for each message, with {time}, {endpoint}, {sequence}, {size}, {parts}, {message} and {hex} "
            "replaced");
    exclude(command, "--json", {"--template", "--parts", "--timestamps", "--format"});
    exclude(command, "--template", {"--parts", "--timestamps"});
}

void addSchema(CLI::App& command, CodecSettings& codec, EnvelopeSettings& envelope, Direction direction) {
    addSchemaFiles(command, codec);
    auto* const type = addText(command, "--type", "NAME", codec.type, "the type of the messages in the schema");
    addValue<std::size_t>(command, "--proto-part", "N", envelope.protoPart,
                          "the part of a message that has the type, from 1 (by default the last)", messageGroup)
        ->transform(wholeNumber(1, std::numeric_limits<int>::max()))
        ->needs(type);
    if (direction == Direction::Both) {
        addText(command, "--reply-type", "NAME", codec.replyType, "the type of the replies, if it differs")
            ->needs(type);
    }
    if (direction != Direction::Sends) {
        addFlag(command, "--all-fields", codec.allFields, "print fields that have their default value too")
            ->needs(type);
        exclude(command, "--format", {"--proto", "--descriptor-set"});
    }
    if (direction != Direction::Receives) {
        exclude(command, "--hex", {"--proto", "--descriptor-set"});
    }
    for (const char* const schema : {"--proto", "--descriptor-set"}) {
        command.get_option(schema)->needs(type);
    }
    needOneOf(command, "--type", {"--proto", "--descriptor-set"});
}

void addNetwork(CLI::App& command, SocketSettings& settings) {
    addValue<std::string>(command, "--listen-on", "HOST", settings.network.listenHost,
                          "listen on this address or interface only, such as localhost (TCP)", networkGroup)
        ->check(host());
    addValue<std::int64_t>(command, "--max-message-size", "SIZE", settings.network.maxMessageSize,
                           "when listening, disconnect a peer that sends a longer message", networkGroup)
        ->transform(size(std::numeric_limits<std::int64_t>::max()));
    command
        .add_option_function<double>(
            "--peer-timeout",
            [&settings](double seconds) {
                settings.network.peerTimeout = static_cast<unsigned int>(std::ceil(seconds));
            },
            "notice after TIME, in whole seconds, that the machine of a peer has vanished")
        ->transform(duration(1.0, 32767.0))
        ->type_name("TIME")
        ->group(networkGroup);
    command.add_flag_callback(
               "--ipv6", [&settings] { settings.network.ipv6 = true; }, "use IPv6 too")
        ->group(networkGroup);
    addKeys(command, settings.keys);
}

} // namespace

CLI::Option* addText(CLI::App& command, const std::string& name, const std::string& placeholder,
                     std::optional<std::string>& target, const std::string& description, const char* group) {
    return addValue<std::string>(command, name, placeholder, target, description, group)->check(notEmpty());
}

CLI::Option* addTexts(CLI::App& command, const std::string& name, const std::string& placeholder,
                      std::vector<std::string>& target, const std::string& description) {
    return command.add_option(name, target, description + " (repeatable)")
        ->allow_extra_args(false)
        ->check(notEmpty())
        ->type_name(placeholder)
        ->group(messageGroup);
}

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& target, const std::string& description,
                     const char* group) {
    return command.add_flag(name, target, description)->group(group);
}

CLI::Option* addTime(CLI::App& command, const std::string& name, std::optional<nanoseconds>& target,
                     const std::string& description) {
    return addDuration(command, name, target, description, target.value_or(nanoseconds(0)));
}

CLI::Option* addTime(CLI::App& command, const std::string& name, nanoseconds& target, const std::string& description) {
    return addDuration(command, name, target, description, target);
}

CLI::Option* addSize(CLI::App& command, const std::string& name, std::size_t& target, const std::string& description) {
    return addValue<std::size_t>(command, name, "SIZE", target, description, socketGroup)
        ->transform(size(2147483647))
        ->default_str(std::to_string(target / (1024UL * 1024UL)) + "MiB");
}

void exclude(CLI::App& command, const std::string& first, const std::vector<std::string>& others) {
    for (const std::string& other : others) {
        command.get_option(first)->excludes(command.get_option(other));
    }
}

void addEndpoint(CLI::App& command, SocketSettings& settings, const std::string& description) {
    command
        .add_option_function<std::string>(
            "ENDPOINT", [&settings](const std::string& text) { settings.endpoints = {text}; }, description)
        ->check(endpoint())
        ->required();
}

void addEndpoints(CLI::App& command, SocketSettings& settings, const std::string& description) {
    command.add_option("ENDPOINT", settings.endpoints, description)->check(endpoint())->required();
}

void addKeys(CLI::App& command, KeyFiles& files) {
    auto* const key = addText(command, "--key", "FILE", files.own,
                              "encrypt TCP with the key pair in FILE, which rk-socket keygen writes", networkGroup);
    auto* const trust =
        addText(command, "--trust", "FILE", files.trusted,
                "talk only to peers whose keys are in FILE, each in a line with a client's name or a server's endpoint",
                networkGroup);
    key->needs(trust);
    trust->needs(key);
}

void addSocket(CLI::App& command, SocketSettings& settings, const std::string& queue, bool listens) {
    const auto direction = [&](const std::string& name, bool binds, const std::string& description) {
        return command.add_flag_callback(
                          name, [&settings, binds] { settings.binds = binds; }, description)
            ->group(socketGroup);
    };
    direction("--bind", true, "listen on the endpoint")
        ->excludes(direction("--connect", false, "connect to the endpoint, where the other side listens"));
    addValue<int>(command, "--fifo", "N", settings.fifo,
                  "hold N " + queue + " messages for each peer; 0: no limit (ZeroMQ's default is 1000)", socketGroup)
        ->transform(wholeNumber(0, std::numeric_limits<int>::max()));
    addNetwork(command, settings);
    for (const char* const option : {"--listen-on", "--max-message-size"}) {
        if (listens) {
            exclude(command, option, {"--connect"});
        } else {
            command.get_option(option)->needs(command.get_option("--bind"));
        }
    }
}

void addSending(CLI::App& command, SocketSettings& settings, const std::string& usual) {
    addValue<unsigned int>(command, "--rate", "MBIT", settings.rate,
                           "send at most MBIT megabits (of 1,048,576 bits) per second", socketGroup)
        ->transform(wholeNumber(1, std::numeric_limits<unsigned int>::max()));
    addChoice<ClosePolicy::ClosePolicy>(command, "--close-policy", "POLICY", settings.closePolicy,
                                        {{"drop", ClosePolicy::DropPending},
                                         {"linger", ClosePolicy::LingerTwoSeconds},
                                         {"wait", ClosePolicy::WaitForDelivery}},
                                        "what happens to unsent messages at the end: drop, linger (for two seconds) or "
                                        "wait (without limit); default: " +
                                            usual,
                                        socketGroup);
}

void addContents(CLI::App& command, SourceSettings& settings, const std::string& description) {
    command.add_option("MESSAGE", settings.messages,
                       description + "; by default each line of standard input. Put those that begin with a dash "
                                     "behind --");
    addTexts(command, "--file", "FILE", settings.files, "send the contents of FILE; - is standard input");
    addFlag(command, "--lines", settings.lines, "each line of FILE is a message")->needs(command.get_option("--file"));
    addFlag(command, "--whole", settings.whole, "all of standard input is one message");
    exclude(command, "MESSAGE", {"--file", "--lines", "--whole"});
    exclude(command, "--whole", {"--file", "--lines"});
}

void addMessages(CLI::App& command, CodecSettings& codec, EnvelopeSettings& envelope, Direction direction) {
    if (direction != Direction::Receives) {
        addFlag(command, "--hex", codec.hex, "messages to send are written in hexadecimal digits");
    }
    const std::string splitting = "split each message to send into parts at TEXT";
    const std::string joining = "put TEXT between the parts that --parts prints (by default a tab)";
    addText(command, "--separator", "TEXT", envelope.separator,
            direction == Direction::Sends      ? splitting
            : direction == Direction::Receives ? joining
                                               : splitting + ", and " + joining);
    if (direction != Direction::Sends) {
        addReceiving(command, codec, envelope);
    }
    addSchema(command, codec, envelope, direction);
}

void addSchemaFiles(CLI::App& command, CodecSettings& settings) {
    addTexts(command, "--proto", "FILE", settings.protoFiles,
             "a schema: messages are protobuf, and printed and written as JSON");
    addTexts(command, "--descriptor-set", "FILE", settings.descriptorSets,
             "a compiled schema, written by protoc --descriptor_set_out --include_imports");
    addTexts(command, "-I,--proto-path", "DIR", settings.protoPaths,
             "a folder of imports, by default that of the schema")
        ->needs(command.get_option("--proto"));
}

void addCount(CLI::App& command, Repetition& repetition, const std::string& description) {
    addValue<std::uint64_t>(command, "-n,--count", "N", repetition.count, description + "; 0: no end", timeGroup)
        ->transform(wholeNumber(0, std::numeric_limits<std::uint64_t>::max()));
}

} // namespace rk::tools
