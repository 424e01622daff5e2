#include "cli/Options.h"

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

void addQueue(CLI::App& command, SocketSettings& settings, const std::string& queue) {
    addValue<int>(command, "--fifo", "N", settings.fifo,
                  "messages that the " + queue + " queue holds for each peer; 0: no limit (0MQ's default: 1000)",
                  socketGroup)
        ->transform(wholeNumber(0, std::numeric_limits<int>::max()));
    addChoice<ClosePolicy::ClosePolicy>(
        command, "--close-policy", "POLICY", settings.closePolicy,
        {{"drop", ClosePolicy::DropPending},
         {"linger", ClosePolicy::LingerTwoSeconds},
         {"wait", ClosePolicy::WaitForDelivery}},
        "what is not yet sent at the end: drop, linger (two seconds at most) or wait (without limit)", socketGroup);
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
    addFlag(command, "--lines", settings.lines, "each line of FILE is a message", messageGroup);
    addFlag(command, "--whole", settings.whole, "all of standard input is one message", messageGroup);
    exclude(command, "MESSAGE", {"--file", "--lines", "--whole"});
    exclude(command, "--whole", {"--file", "--lines"});
}

void addHex(CLI::App& command, CodecSettings& settings) {
    addFlag(command, "--hex", settings.hex, "what is sent is written in hexadecimal digits", messageGroup);
}

void addFormat(CLI::App& command, CodecSettings& settings, const std::string& things) {
    addChoice<Format>(command, "--format", "FORMAT", settings.format,
                      {{"text", Format::Text}, {"hex", Format::Hex}, {"raw", Format::Raw}},
                      "how " + things +
                          " are written: text (a line each, control characters escaped), hex (a line each) or raw "
                          "(the bytes and nothing else)",
                      messageGroup);
}

void addSchema(CLI::App& command, CodecSettings& settings, const std::string& things) {
    auto* const proto = addPaths(command, "--proto", "FILE...", settings.protoFiles,
                                 "the schema: messages are protobuf, and written as JSON, an object a line");
    auto* const type =
        addText(command, "--type", "NAME", settings.type, "the type of the " + things + " in the schema", messageGroup);
    proto->needs(type);
    type->needs(proto);
    addPaths(command, "--proto-path", "DIR", settings.protoPaths,
             "where the schema's imports are; without it, the schema's own folder")
        ->needs(proto);
    if (auto* const format = command.get_option_no_throw("--format")) {
        addFlag(command, "--all-fields", settings.allFields, "print fields also when they have their default value",
                messageGroup)
            ->needs(proto);
        proto->excludes(format);
    }
    if (auto* const hex = command.get_option_no_throw("--hex")) {
        proto->excludes(hex);
    }
}

void addReplyType(CLI::App& command, CodecSettings& settings) {
    addText(command, "--reply-type", "NAME", settings.replyType, "the type of the replies; without it, as --type",
            messageGroup)
        ->needs(command.get_option("--proto"));
}

void addCount(CLI::App& command, std::optional<std::uint64_t>& count, const std::string& description) {
    addValue<std::uint64_t>(command, "-n,--count", "N", count, description, timeGroup)
        ->transform(wholeNumber(0, std::numeric_limits<std::uint64_t>::max()));
}

void addTime(CLI::App& command, const std::string& name, nanoseconds& time, const std::string& description) {
    addDuration(command, name, time, description)->default_str(time.count() == 0 ? "" : textOf(time));
}

void addInbox(CLI::App& command, InboxSettings& settings, const std::string& description) {
    addDuration(command, "-t,--timeout", settings.timeout, description)
        ->default_str(settings.timeout ? textOf(*settings.timeout) : "");
    addValue<std::size_t>(command, "--max-size", "SIZE", settings.maxSize,
                          "the longest message that is received; longer ones are left out", socketGroup)
        ->transform(size(2147483647))
        ->default_str(std::to_string(settings.maxSize / (1024UL * 1024UL)) + "MiB");
}

} // namespace rk::tools
