#include "Commands.h"
#include "Measuring.h"
#include "Process.h"
#include "messages.pb.h"

#include <zmq.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Measures how long the command-line tool takes to print messages, compared with the shortest program for the same
// work. The readers take turns. Each runs in its own process and writes to /dev/null.

namespace rk::benchmarks {

namespace {

constexpr std::size_t blockSize = 64;
constexpr const char* type = "rk.benchmarks.Reading";

/// Starts a program and discards its output.
pid_t start(const std::vector<std::string>& arguments) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    return spawn(arguments.front(), arguments, actions);
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct Reader {
    std::string name;
    std::vector<std::string> before; ///< its command line up to the URL
    std::vector<std::string> after;
    std::string block;
    unsigned long count;
};

/// Publishes the block as many times as the reader expects.
void measure(const Reader& reader) {
    void* const context = zmq_ctx_new();
    void* const publisher = zmq_socket(context, ZMQ_XPUB);
    const int lossless = 1;
    zmq_setsockopt(publisher, ZMQ_XPUB_NODROP, &lossless, sizeof lossless);
    const std::string url = freshUrl("tcp");
    require(zmq_bind(publisher, url.c_str()) == 0, "zmq_bind");
    std::vector<std::string> arguments = reader.before;
    arguments.push_back(url);
    arguments.insert(arguments.end(), reader.after.begin(), reader.after.end());
    const pid_t child = start(arguments);
    std::array<char, 1> subscription{};
    require(zmq_recv(publisher, subscription.data(), 1, 0) == 1, "zmq_recv");
    const Stopwatch watch;
    for (unsigned long sent = 0; sent < reader.count; ++sent) {
        require(zmq_send(publisher, reader.block.data(), reader.block.size(), 0) >= 0, "zmq_send");
    }
    int status = 0;
    rusage usage{};
    require(::wait4(child, &status, 0, &usage) == child && status == 0, reader.name.c_str());
    const double elapsed = watch.nanoseconds();
    const double processor = (seconds(usage.ru_utime) + seconds(usage.ru_stime)) * 1e9;
    const auto count = static_cast<double>(reader.count);
    write({{"reader", reader.name}}, {{"nanoseconds", elapsed / count}, {"processor", processor / count}});
    zmq_close(publisher);
    zmq_ctx_term(context);
}

std::string protobufBlock() {
    Reading message;
    message.set_sequence(1);
    message.set_time(0.5);
    message.set_source("benchmark");
    message.set_payload(std::string(blockSize, 'x'));
    return message.SerializeAsString();
}

void measureAll(const std::string& tool, unsigned int rounds, unsigned long count) {
    const std::string raw(blockSize, 'x');
    const std::string number = std::to_string(count);
    const unsigned long fewer = count / 10;
    const std::string fewerNumber = std::to_string(fewer);
    const std::vector<Reader> readers = {
        {"raw by hand", {RK_BENCHMARK_PRINTER}, {number}, raw, count},
        {"raw with the tool", {tool, "sub"}, {"--count", number, "--format", "raw"}, raw, count},
        {"text with the tool", {tool, "sub"}, {"--count", number}, raw, count},
        {"JSON by hand", {RK_BENCHMARK_PRINTER}, {fewerNumber, "--json"}, protobufBlock(), fewer},
        {"JSON with the tool",
         {tool, "sub"},
         {"--count", fewerNumber, "--proto", RK_BENCHMARK_SCHEMA, "--type", type},
         protobufBlock(),
         fewer}};
    for (unsigned int round = 0; round < rounds; ++round) {
        for (const Reader& reader : readers) {
            measure(reader);
        }
    }
}

} // namespace

void addTool(CLI::App& program) {
    struct Options {
        std::string path;
        unsigned int rounds = 0;
        unsigned long count = 0;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = program.add_subcommand(
        "tool", "Measure how long the command-line tool takes to print a message, beside a short program by hand");
    command->add_option("TOOL", options->path, "its path")->required();
    command->add_option("ROUNDS", options->rounds)->required();
    command->add_option("COUNT", options->count, "messages, a tenth as many for JSON")->required();
    command->callback([options] { measureAll(options->path, options->rounds, options->count); });
}

} // namespace rk::benchmarks
