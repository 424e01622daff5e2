#include "Interface.h"

#include "Duration.h"

#include <limits>
#include <map>

namespace rk::tools {

namespace {

namespace ClosePolicy = rk::socket::ClosePolicy;
namespace Protocol = rk::socket::Protocol;
using std::chrono::milliseconds;

const char* const messageGroup = "Messages";
const char* const timeGroup = "Number and time";
const char* const socketGroup = "Socket";

template <class Value>
using Choices = std::vector<std::pair<std::string, Value>>;

const Choices<Format> formats = {{"text", Format::Text}, {"hex", Format::Hex}, {"raw", Format::Raw}};
const Choices<ClosePolicy::ClosePolicy> closePolicies = {{"drop", ClosePolicy::DropPending},
                                                         {"linger", ClosePolicy::LingerTwoSeconds},
                                                         {"wait", ClosePolicy::WaitForDelivery}};

template <class Value>
std::vector<std::string> namesOf(const Choices<Value>& choices) {
    std::vector<std::string> names;
    for (const auto& choice : choices) {
        names.push_back(choice.first);
    }
    return names;
}

/// Adds the options of one subcommand. The settings have a subcommand's defaults only once it is known to be meant.
class Subcommand {
public:
    Subcommand(CLI::App& app, Settings& settingsToFill, Protocol::Protocol protocol, const std::string& description)
        : settings(settingsToFill), command(*app.add_subcommand(Protocol::ToString(protocol), description)) {
        command.preparse_callback([this_ = &settings, protocol](std::size_t) {
            this_->protocol = protocol;
            const bool answers = protocol == Protocol::Pub || protocol == Protocol::Rep;
            this_->closePolicy = answers ? ClosePolicy::LingerTwoSeconds : ClosePolicy::DropPending;
            if (protocol == Protocol::Sub) {
                this_->interval = milliseconds(1000);
            } else if (protocol == Protocol::Pub) {
                this_->delay = milliseconds(500);
            } else if (protocol == Protocol::Req) {
                this_->timeout = milliseconds(5000);
            }
        });
    }

    void endpoint(const std::string& description) {
        command
            .add_option_function<std::string>(
                "ENDPOINT", [this_ = &settings](const std::string& text) { this_->endpoints = {text}; }, description)
            ->required();
    }

    void endpoints(const std::string& description) {
        command.add_option("ENDPOINT", settings.endpoints, description)->required();
    }

    void contents(const std::string& things) {
        auto* const messages = command.add_option(
            "MESSAGE", settings.messages,
            things + "; without any, each line of standard input is one. Those that begin with a dash go behind --");
        auto* const files =
            option("--file", "FILE", settings.files, "send what is in FILE; - is standard input", messageGroup);
        auto* const lines = flag("--lines", settings.lines, "each line of FILE is a message", messageGroup);
        auto* const whole = flag("--whole", settings.whole, "all of standard input is one message", messageGroup);
        messages->excludes(files)->excludes(whole);
        lines->excludes(messages)->excludes(whole);
        whole->excludes(files);
        hex();
    }

    void hex() { flag("--hex", settings.hex, "what is sent is written in hexadecimal digits", messageGroup); }

    void format(const std::string& things) {
        choice("--format", "FORMAT", settings.format, formats,
               "how " + things +
                   " are written: text (a line each, control characters escaped; the default), hex (a line each) or "
                   "raw (the bytes and nothing else)",
               messageGroup);
    }

    /// `replies`: the subcommand has a second type, for the replies.
    void schema(bool replies, bool prints) {
        auto* const proto =
            option("--proto", "FILE...", settings.protoFiles,
                   "the schema: messages are protobuf, and written as JSON, an object a line", messageGroup);
        auto* const type = option(
            "--type", "NAME", settings.type,
            std::string("the type of the ") + (replies ? "requests" : "messages") + " in the schema", messageGroup);
        auto* const path = option("--proto-path", "DIR", settings.protoPaths,
                                  "where the schema's imports are; without it, the schema's own folder", messageGroup);
        proto->needs(type);
        type->needs(proto);
        path->needs(proto);
        if (replies) {
            option("--reply-type", "NAME", settings.replyType, "the type of the replies; without it, as --type",
                   messageGroup)
                ->needs(proto);
        }
        if (prints) {
            flag("--all-fields", settings.allFields, "print fields also when they have their default value",
                 messageGroup)
                ->needs(proto);
            proto->excludes(command.get_option("--format"));
        }
        if (auto* const hexFlag = command.get_option_no_throw("--hex")) {
            proto->excludes(hexFlag);
        }
    }

    void count(const std::string& description) {
        value<std::uint64_t>("-n,--count", "N", description, timeGroup,
                             [this_ = &settings](const std::uint64_t& number) { this_->count = number; });
    }

    void timeout(const std::string& description) {
        duration("-t,--timeout", description,
                 [this_ = &settings](std::chrono::nanoseconds time) { this_->timeout = time; });
    }

    void interval(const std::string& description) {
        duration("-i,--interval", description,
                 [this_ = &settings](std::chrono::nanoseconds time) { this_->interval = time; });
    }

    void delay() {
        duration("--delay",
                 "wait before the first message, so that subscribers that wait for the endpoint find it (default: "
                 "500ms): what is sent before they have is lost to them",
                 [this_ = &settings](std::chrono::nanoseconds time) { this_->delay = time; });
    }

    void rate() {
        option("--rate", "MBIT", settings.rate, "send no faster than this many megabits (1,048,576 bits) a second",
               socketGroup)
            ->check(CLI::Range(1U, std::numeric_limits<unsigned int>::max()).description(""));
    }

    void fifo(const std::string& queue) {
        value<int>("--fifo", "N",
                   "messages that the " + queue + " queue holds for each peer; 0: no limit (0MQ's default: 1000)",
                   socketGroup, [this_ = &settings](const int& number) { this_->fifo = number; })
            ->check(CLI::Range(0, std::numeric_limits<int>::max()).description(""));
    }

    void closePolicy(const std::string& usual) {
        choice(
            "--close-policy", "POLICY", settings.closePolicy, closePolicies,
            "what is not yet sent at the end: drop, linger (two seconds at most) or wait (without limit); default: " +
                usual,
            socketGroup);
    }

    void maxSize() {
        option("--max-size", "BYTES", settings.maxSize,
               "the longest message that is received; longer ones are left out (default: 64 MiB)", socketGroup)
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{2147483647}).description(""));
    }

    void verbose() {
        flag("-v,--verbose", settings.verbose, "show what the library logs, on standard error", "General");
        command.set_help_flag("-h,--help", "show this help")->group("General");
    }

    void statisticsAndRecording() {
        auto* const stats =
            flag("--stats", settings.stats,
                 "instead of the messages, show how many there are, how large and how regular: redrawn in place on a "
                 "terminal, else a line for each interval",
                 messageGroup);
        auto* const record =
            option("--record", "FILE", settings.record,
                   "instead of printing the messages, keep them in FILE for pub --replay", messageGroup);
        for (const char* const name : {"--proto", "--format"}) {
            stats->excludes(command.get_option(name));
            record->excludes(command.get_option(name));
        }
    }

    void replay() {
        auto* const replay = option("--replay", "FILE", settings.replay,
                                    "send what sub --record has kept, with its timing", messageGroup);
        option("--speed", "FACTOR", settings.speed, "replay faster or slower; 0: without pauses (default: 1)",
               timeGroup)
            ->needs(replay)
            ->check(CLI::Range(0.0, 1e9).description(""));
        for (const char* const name : {"MESSAGE", "--file", "--lines", "--whole", "--hex", "--proto", "--interval"}) {
            replay->excludes(command.get_option(name));
        }
    }

    void answers() {
        auto* const group = command.add_option_group("Reply", "one of these is needed");
        group
            ->add_option_function<std::string>(
                "--reply", [this_ = &settings](const std::string& text) { this_->reply = text; },
                "answer each request with TEXT")
            ->type_name("TEXT");
        group->add_option("--reply-file", settings.replyFile, "answer with what is in FILE")->type_name("FILE");
        group->add_flag("--echo", settings.echo, "answer with the request");
        group
            ->add_option("--command", settings.command,
                         "answer with what COMMAND, run by the shell, writes when it is given the request")
            ->type_name("COMMAND");
        group->set_help_flag();
        group->require_option(1);
    }

private:
    template <class Target>
    CLI::Option* option(const std::string& name, const std::string& placeholder, Target& target,
                        const std::string& description, const std::string& group) {
        auto* const added = command.add_option(name, target, description);
        if constexpr (std::is_same_v<Target, std::vector<std::string>>) {
            added->allow_extra_args(false); // one value each time it is given
        }
        return added->type_name(placeholder)->group(group);
    }

    template <class Value, class Set>
    CLI::Option* value(const std::string& name, const std::string& placeholder, const std::string& description,
                       const std::string& group, Set set) {
        return command.add_option_function<Value>(name, set, description)->type_name(placeholder)->group(group);
    }

    CLI::Option* flag(const std::string& name, bool& target, const std::string& description, const std::string& group) {
        return command.add_flag(name, target, description)->group(group);
    }

    template <class Set>
    void duration(const std::string& name, const std::string& description, Set set) {
        value<std::string>(name, "TIME", description, timeGroup, [set, name](const std::string& text) {
            try {
                set(durationFromText(text));
            } catch (const std::exception& failure) {
                throw CLI::ValidationError(name.substr(name.find("--")), failure.what());
            }
        });
    }

    template <class Value>
    void choice(const std::string& name, const std::string& placeholder, Value& target, const Choices<Value>& choices,
                const std::string& description, const std::string& group) {
        const std::map<std::string, Value> values(choices.begin(), choices.end());
        value<std::string>(name, placeholder, description, group, [&target, values](const std::string& text) {
            target = values.at(text);
        })->check(CLI::IsMember(namesOf(choices)).description(""));
    }

    Settings& settings;
    CLI::App& command;
};

void describeSub(CLI::App& app, Settings& settings) {
    Subcommand sub(app, settings, Protocol::Sub, "Print what is published");
    sub.endpoints(
        "tcp://HOST:PORT or ipc://PATH, where somebody publishes; messages of all of them are mixed as they come");
    sub.format("messages");
    sub.schema(false, true);
    sub.statisticsAndRecording();
    sub.count("end after N messages");
    sub.timeout("end, with status 3, when no message has come for TIME");
    sub.interval("for --stats: TIME between lines (default: 1s)");
    sub.fifo("incoming");
    sub.closePolicy("drop, and always so for sub");
    sub.maxSize();
    sub.verbose();
}

void describePub(CLI::App& app, Settings& settings) {
    Subcommand pub(app, settings, Protocol::Pub, "Publish messages");
    pub.endpoint("where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
    pub.contents("what to publish");
    pub.schema(false, false);
    pub.count("publish N messages, beginning again at the first when there are no more; 0: for ever");
    pub.interval("wait TIME between messages");
    pub.delay();
    pub.replay();
    pub.rate();
    pub.fifo("outgoing");
    pub.closePolicy("linger");
    pub.verbose();
}

void describeReq(CLI::App& app, Settings& settings) {
    Subcommand req(app, settings, Protocol::Req, "Send requests and print the replies");
    req.endpoint("tcp://HOST:PORT or ipc://PATH, where somebody answers");
    req.contents("what to ask");
    req.format("replies");
    req.schema(true, true);
    req.count("send N requests, beginning again at the first when there are no more, and show how the round-trip times "
              "are distributed; 0: for ever");
    req.timeout("wait TIME for each reply (default: 5s); status 3 if one did not come");
    req.interval("wait TIME between requests");
    req.rate();
    req.fifo("outgoing");
    req.closePolicy("drop");
    req.maxSize();
    req.verbose();
}

void describeRep(CLI::App& app, Settings& settings) {
    Subcommand rep(app, settings, Protocol::Rep, "Print requests and answer them");
    rep.endpoint("where to listen: tcp://*:PORT, on all interfaces, or ipc://PATH");
    rep.answers();
    rep.hex();
    rep.format("requests");
    rep.schema(true, true);
    rep.count("end after N requests");
    rep.timeout("end, with status 3, when no request has come for TIME");
    rep.rate();
    rep.fifo("incoming");
    rep.closePolicy("linger");
    rep.maxSize();
    rep.verbose();
}

} // namespace

void describeInterface(CLI::App& app, Settings& settings) {
    app.description("See and speak on the endpoints of 0MQ sockets: text, bytes, or protobuf messages as JSON.");
    app.set_help_flag("-h,--help", "show this help");
    app.set_version_flag("--version", RK_SOCKET_VERSION, "show the version");
    app.require_subcommand(1);
    describeSub(app, settings);
    describePub(app, settings);
    describeReq(app, settings);
    describeRep(app, settings);
}

std::vector<std::string> choicesOf(const std::string& option) {
    return option == "--format"         ? namesOf(formats)
           : option == "--close-policy" ? namesOf(closePolicies)
                                        : std::vector<std::string>();
}

} // namespace rk::tools
