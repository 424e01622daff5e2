/// Runs all patterns over all transports until its standard input ends. Prints a line of JSON figures each second, and
/// a line "breach TEXT" for each broken promise.

#include "endurance/InputEnd.h"
#include "endurance/soak/Lane.h"
#include "endurance/soak/LogWatch.h"
#include "support/Immortal.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <future>
#include <malloc.h>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

namespace rk::tests::soak {

namespace {

using Lanes = std::vector<std::unique_ptr<Lane>>;

Lanes makeLanes(std::uint64_t seed, Figures& figures) {
    Lanes lanes;
    for (const auto transport : {socket::Transport::Tcp, socket::Transport::Ipc, socket::Transport::Inproc}) {
        for (const auto make : {makeRequestLane, makeFeedLane, makeClosingLane}) {
            lanes.push_back(make(transport, ++seed, figures));
        }
    }
    return lanes;
}

void work(Lane& lane, const std::atomic<bool>& stopped) {
    try {
        while (!stopped) {
            lane.step();
            // The pause waits for nothing. It is the lane's rate, because a soak is hours of moderate load.
            std::this_thread::sleep_for(lane.pause);
        }
    } catch (const std::exception& failure) {
        lane.breach(failure.what());
    }
}

/// Returns whether all lanes end. A lane that hangs is a breach, and the process must exit without it.
bool wait(const Lanes& lanes, const std::vector<std::future<void>>& ends) {
    const auto deadline = std::chrono::steady_clock::now() + 3 * patience;
    bool ended = true;
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        if (ends[i].wait_until(deadline) != std::future_status::ready) {
            lanes[i]->breach("hangs");
            ended = false;
        }
    }
    return ended;
}

/// Returns the allocated memory, without the allocator's free memory.
double allocatedKiB() {
    const struct mallinfo2 memory = mallinfo2();
    return static_cast<double>(memory.uordblks + memory.hblkhd) / 1024;
}

std::string json(const Figures& figures) {
    const std::map<std::string, std::uint64_t> counts{{"exchanges", figures.exchanges},
                                                      {"published", figures.published},
                                                      {"deliveries", figures.deliveries},
                                                      {"repeats", figures.repeats},
                                                      {"jams", figures.jams},
                                                      {"restarts", figures.restarts},
                                                      {"failures", figures.failures},
                                                      {"repairs", immortal<LogWatch>().repairs()}};
    std::ostringstream text;
    text << std::fixed << "{\"allocated KiB\": " << allocatedKiB();
    for (const auto& [name, count] : counts) {
        text << ", \"" << name << "\": " << count;
    }
    text << "}";
    return text.str();
}

/// Uses one arena for all threads, and takes large blocks from the system. Released memory is returned, so that only
/// memory in use can grow.
void keepAllocatorFromHoarding() {
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 4096);
}

} // namespace

} // namespace rk::tests::soak

int main(int argc, char** argv) {
    using namespace rk::tests::soak;
    if (argc != 2) {
        std::cerr << "usage: soak SEED\n";
        return 2;
    }
    keepAllocatorFromHoarding();
    Figures figures;
    const Lanes lanes = makeLanes(std::strtoull(argv[1], nullptr, 10), figures);
    std::atomic<bool> stopped{false};
    std::vector<std::future<void>> ends; // of the lanes, in their order
    for (const auto& lane : lanes) {
        ends.push_back(std::async(std::launch::async, [&stopped, &one = *lane] { work(one, stopped); }));
    }
    while (!rk::tests::inputEndsWithin(std::chrono::seconds(1))) {
        figures.write(json(figures));
    }
    stopped = true;
    if (!wait(lanes, ends)) {
        std::_Exit(EXIT_FAILURE);
    }
}
