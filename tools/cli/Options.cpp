#include "cli/Options.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace rk::tools {

namespace {

namespace ClosePolicy = rk::socket::ClosePolicy;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

template <class Value>
using Choices = std::vector<std::pair<std::string, Value>>;

/// One of a few words, each of which stands for a value.
template <class Value>
void addChoice(CLI::App& command, const std::string& name, const std::string& placeholder, Value& target,
               const Choices<Value>& choices, const std::string& description, const char* group) {
    const std::map<std::string, Value> values(choices.begin(), choices.end());
    std::vector<std::string> names;
    std::string usual;
    for (const auto& [word, value] : choices) {
        names.push_back(word);
        usual = value == target ? word : usual;
    }
    command
        .add_option_function<std::string>(
            name, [&target, values](const std::string& word) { target = values.at(word); }, description)
        ->check(CLI::IsMember(names).description(""))
        ->type_name(placeholder)
        ->default_str(usual)
        ->group(group);
}

/// May be given several times, with one value each.
CLI::Option* addPaths(CLI::App& command, const std::string& name, const std::string& placeholder,
                      std::vector<std::string>& paths, const std::string& description) {
    return command.add_option(name, paths, description)
        ->allow_extra_args(false)
        ->check(notEmpty())
        ->type_name(placeholder)
        ->group(messageGroup);
}

/// Has `option` refused without one of the others.
void needOneOf(CLI::App& command, const CLI::Option* option, const std::vector<const CLI::Option*>& others) {
    command.parse_complete_callback([option, others] {
        const auto given = [](const CLI::Option* other) { return other->count() > 0; };
        if (given(option) && std::none_of(others.begin(), others.end(), given)) {
            throw CLI::RequiresError(option->get_name(), others.front()->get_name());
        }
    });
}

std::string textOf(nanoseconds time) {
    const auto whole = std::chrono::duration_cast<milliseconds>(time).count();
    return whole % 1000 == 0 ? std::to_string(whole / 1000) + "s" : std::to_string(whole) + "ms";
}

template <class Target>
CLI::Option* addDuration(CLI::App& command, const std::string& name, Target& target, const std::string& description) {
    return command
        .add_option_function<double>(
            name, [&target](const double& seconds) { target = nanoseconds(static_cast<std::int64_t>(seconds * 1e9)); },
            description)
        ->transform(duration())
        ->type_name("TIME")
        ->group(timeGroup);
}

} // namespace

CLI::Option* addText(CLI::App& command, const std::string& name, const std::string& placeholder,
                     std::optional<std::string>& target, const std::string& description, const char* group) {
    return addValue<std::string>(command, name, placeholder, target, description, group)->check(notEmpty());
}

CLI::Option* addFlag(CLI::App& command, const std::string& name, bool& target, const std::string& description,
                     const char* group) {
    return command.add_flag(name, target, description)->group(group);
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
                              "encrypt TCP with the key pair in FILE, which rk-socket keygen makes", networkGroup);
    auto* const trust =
        addText(command, "--trust", "FILE", files.trusted,
                "talk only to peers whose keys are in FILE; a line is a key and a client's name, or a key "
                "and a server's endpoint",
                networkGroup);
    key->needs(trust);
    trust->needs(key);
}

void addNetwork(CLI::App& command, SocketSettings& settings) {
    addValue<std::string>(command, "--listen-on", "HOST", settings.listenOn,
                          "on TCP, listen on this address or interface alone, for instance localhost", networkGroup)
        ->check(host());
    addValue<std::int64_t>(command, "--max-message-size", "SIZE", settings.maxMessageSize,
                           "when listening, disconnect a peer that sends a longer message", networkGroup)
        ->transform(size(std::numeric_limits<std::int64_t>::max()));
    command
        .add_option_function<double>(
            "--peer-timeout",
            [&settings](double seconds) {
                settings.peerTimeout = std::chrono::seconds(static_cast<std::int64_t>(std::ceil(seconds)));
            },
            "notice within TIME, in whole seconds, that a peer's machine has vanished")
        ->transform(duration(1.0, 32767.0))
        ->type_name("TIME")
        ->group(networkGroup);
    addFlag(command, "--ipv6", settings.ipv6, "use IPv6, too", networkGroup);
    addKeys(command, settings.keys);
}

void addSocket(CLI::App& command, SocketSettings& settings, const std::string& queue, bool listens) {
    const auto direction = [&](const std::string& name, bool binds, const std::string& description) {
        return command.add_flag_callback(
                          name, [&settings, binds] { settings.binds = binds; }, description)
            ->group(socketGroup);
    };
    direction("--bind", true, "listen on the endpoint")
        ->excludes(direction("--connect", false, "connect to the endpoint, on which the other side listens"));
    addValue<int>(command, "--fifo", "N", settings.fifo,
                  "messages that the " + queue + " queue holds for each peer; 0: no limit (ZeroMQ's default: 1000)",
                  socketGroup)
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

void addClosePolicy(CLI::App& command, SocketSettings& settings, const std::string& usual) {
    static const std::map<std::string, ClosePolicy::ClosePolicy> policies = {{"drop", ClosePolicy::DropPending},
                                                                             {"linger", ClosePolicy::LingerTwoSeconds},
                                                                             {"wait", ClosePolicy::WaitForDelivery}};
    command
        .add_option_function<std::string>(
            "--close-policy", [&settings](const std::string& word) { settings.closePolicy = policies.at(word); },
            "what is not yet sent at the end: drop, linger (two seconds at most) or wait (without limit); without "
            "it, " +
                usual)
        ->check(CLI::IsMember({"drop", "linger", "wait"}).description(""))
        ->type_name("POLICY")
        ->group(socketGroup);
}

void addRate(CLI::App& command, SocketSettings& settings) {
    addValue<unsigned int>(command, "--rate", "MBIT", settings.rate,
                           "send no faster than this many megabits (1,048,576 bits) a second", socketGroup)
        ->transform(wholeNumber(1, std::numeric_limits<unsigned int>::max()));
}

void addContents(CLI::App& command, SourceSettings& settings, const std::string& things) {
    command.add_option(
        "MESSAGE", settings.messages,
        things + "; without any, each line of standard input is one. Those that begin with a dash go behind --");
    addPaths(command, "--file", "FILE", settings.files, "send what is in FILE; - is standard input");
    addFlag(command, "--lines", settings.lines, "each line of FILE is a message", messageGroup)
        ->needs(command.get_option("--file"));
    addFlag(command, "--whole", settings.whole, "all of standard input is one message", messageGroup);
    exclude(command, "MESSAGE", {"--file", "--lines", "--whole"});
    exclude(command, "--whole", {"--file", "--lines"});
}

void addHex(CLI::App& command, CodecSettings& settings) {
    addFlag(command, "--hex", settings.hex, "what is sent is written in hexadecimal digits", messageGroup);
}

void addFormat(CLI::App& command, CodecSettings& settings, const std::string& things) {
    addChoice<Format>(
        command, "--format", "FORMAT", settings.format,
        {{"text", Format::Text}, {"hex", Format::Hex}, {"hexdump", Format::Hexdump}, {"raw", Format::Raw}},
        "how " + things +
            " are written: text (a line each, control characters escaped), hex (a line each), hexdump "
            "(lines of 16 bytes) or raw (the bytes and nothing else)",
        messageGroup);
}

void addEnvelope(CLI::App& command, EnvelopeSettings& settings) {
    const bool receives = command.get_option_no_throw("--format") != nullptr;
    addText(command, "--separator", "TEXT", settings.separator,
            receives
                ? "what stands between the parts of a message, in what is sent and, with --parts, in what is written "
                  "(without it, a tab)"
                : "what is sent is split into the parts of a message at each TEXT",
            messageGroup);
    if (!receives) {
        return;
    }
    addFlag(command, "--parts", settings.parts, "all parts of a message in one line, not each in its own",
            messageGroup);
    addFlag(command, "--timestamps", settings.timestamps, "begin each message with the time of its arrival (UTC)",
            messageGroup);
    addFlag(command, "--json", settings.json,
            "a JSON object a line with time, endpoint, sequence, size and parts of each message", messageGroup);
    addText(command, "--template", "TEXT", settings.layout,
            "write TEXT for each message, with {time}, {endpoint}, {sequence}, {size}, {parts}, {message} and {hex} "
            "replaced",
            messageGroup);
    exclude(command, "--json", {"--template", "--parts", "--timestamps", "--format"});
    exclude(command, "--template", {"--parts", "--timestamps"});
}

void addSchemaFiles(CLI::App& command, CodecSettings& settings) {
    addPaths(command, "--proto", "FILE...", settings.protoFiles,
             "the schema: messages are protobuf, and written as JSON, an object a line");
    addPaths(command, "--descriptor-set", "FILE", settings.descriptorSets,
             "a compiled schema, as protoc --descriptor_set_out --include_imports writes it");
    addPaths(command, "-I,--proto-path", "DIR", settings.protoPaths,
             "where the schema's imports are; without it, the schema's own folder")
        ->needs(command.get_option("--proto"));
}

void addSchema(CLI::App& command, CodecSettings& settings, EnvelopeSettings& envelope, const std::string& things) {
    addSchemaFiles(command, settings);
    auto* const proto = command.get_option("--proto");
    auto* const set = command.get_option("--descriptor-set");
    auto* const type =
        addText(command, "--type", "NAME", settings.type, "the type of the " + things + " in the schema", messageGroup);
    proto->needs(type);
    set->needs(type);
    addValue<std::size_t>(command, "--proto-part", "N", envelope.protoPart,
                          "the part of a message that has the type, beginning at 1; without it, the last", messageGroup)
        ->transform(wholeNumber(1, std::numeric_limits<int>::max()))
        ->needs(type);
    if (auto* const format = command.get_option_no_throw("--format")) {
        addFlag(command, "--all-fields", settings.allFields, "print fields also when they have their default value",
                messageGroup)
            ->needs(type);
        proto->excludes(format);
        set->excludes(format);
    }
    if (auto* const hex = command.get_option_no_throw("--hex")) {
        proto->excludes(hex);
        set->excludes(hex);
    }
    needOneOf(command, type, {proto, set});
}

void addReplyType(CLI::App& command, CodecSettings& settings) {
    addText(command, "--reply-type", "NAME", settings.replyType, "the type of the replies; without it, as --type",
            messageGroup)
        ->needs(command.get_option("--type"));
}

void addCount(CLI::App& command, Repetition& repetition, const std::string& description) {
    addValue<std::uint64_t>(command, "-n,--count", "N", repetition.count, description + "; 0: no end", timeGroup)
        ->transform(wholeNumber(0, std::numeric_limits<std::uint64_t>::max()));
}

void addTime(CLI::App& command, const std::string& name, nanoseconds& time, const std::string& description) {
    addDuration(command, name, time, description)->default_str(time.count() == 0 ? "" : textOf(time));
}

void addMaxSize(CLI::App& command, std::size_t& maxSize, const std::string& description) {
    addValue<std::size_t>(command, "--max-size", "SIZE", maxSize, description, socketGroup)
        ->transform(size(2147483647))
        ->default_str(std::to_string(maxSize / (1024UL * 1024UL)) + "MiB");
}

void addInbox(CLI::App& command, InboxSettings& settings, const std::string& description) {
    addDuration(command, "-t,--timeout", settings.timeout, description)
        ->default_str(settings.timeout ? textOf(*settings.timeout) : "");
    addMaxSize(command, settings.maxSize, "the longest message that is received; longer ones are left out");
}

} // namespace rk::tools
