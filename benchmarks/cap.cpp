#include "Commands.h"
#include "Measuring.h"

#include <rk/socket/Socket.h>

#include <algorithm>
#include <future>
#include <memory>

namespace rk::benchmarks {

namespace {

constexpr double megabit = 1048576.0;
constexpr double window = 0.1;

/// Returns the largest amount sent within any window, divided by the amount that the rate allows. 1 is perfect.
double burst(const std::vector<double>& times, double bitsPerBlock, double rate) {
    std::size_t most = 0;
    std::size_t begin = 0;
    for (std::size_t end = 0; end < times.size(); ++end) {
        while (times[end] - times[begin] >= window) {
            ++begin;
        }
        most = std::max(most, end - begin + 1);
    }
    return static_cast<double>(most) * bitsPerBlock / std::max(rate * megabit * window, bitsPerBlock);
}

void measure(unsigned int rate, std::size_t size, double seconds) {
    socket::Socket publisher("capped", socket::ClosePolicy::DropPending);
    publisher.createAndConnect(socket::Protocol::Pub, socket::SocketEndpoint::FromString(freshUrl("inproc")), 0);
    publisher.setTargetBitRate(rate);
    std::vector<char> block(size);
    publisher.send(block.data(), block.size());
    std::vector<double> times;
    const Stopwatch watch;
    while (times.size() < 3 || watch.seconds() < seconds) {
        publisher.send(block.data(), block.size());
        times.push_back(watch.seconds());
    }
    const double bits = static_cast<double>(size) * 8.0;
    const double measured = bits * static_cast<double>(times.size()) / times.back() / megabit;
    write({}, {{"rate", rate},
               {"size", static_cast<double>(size)},
               {"measured", measured},
               {"burst", burst(times, bits, rate)}});
}

void measureAll(double seconds, double longest) {
    std::vector<std::future<void>> slow;
    for (const unsigned int rate : {1U, 3U, 10U, 30U, 100U, 300U, 1000U}) {
        for (const std::size_t size : {64U, 1024U, 16384U, 262144U, 1048576U, 8388608U}) {
            const double secondsOfABlock = static_cast<double>(size) * 8.0 / (rate * megabit);
            if (secondsOfABlock > longest) {
                continue;
            }
            if (secondsOfABlock > seconds) {
                // In parallel, because it mostly sleeps.
                slow.push_back(std::async(std::launch::async, measure, rate, size, seconds));
            } else {
                measure(rate, size, seconds);
            }
        }
    }
    for (std::future<void>& measurement : slow) {
        measurement.get();
    }
}

} // namespace

void addCap(CLI::App& program) {
    struct Options {
        double seconds = 0;
        double longest = 0;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* const command = program.add_subcommand(
        "cap", "Measure how well a socket holds the bit rate that it is told, and how much it lets out at once");
    command->add_option("SECONDS", options->seconds, "for each rate and each size of a block")->required();
    command->add_option("LONGEST", options->longest, "seconds of a block; sizes that take longer are left out")
        ->required();
    command->callback([options] { measureAll(options->seconds, options->longest); });
}

} // namespace rk::benchmarks
